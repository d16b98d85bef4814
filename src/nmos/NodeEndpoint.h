#pragma once

#include <QString>
#include <QVariant>

// What a selector stands for: a node, and which of its senders or receivers.
struct NodeEndpoint {
    QString host; // the node host, or the text that the operator typed
    QString id; // empty: no particular sender or receiver

    // The endpoint that an entry's record names: an NmosClient::SenderConnection or
    // NmosClient::ReceiverConnection. Anything else, an invalid variant included, gives empty
    // texts.
    static NodeEndpoint of(const QVariant &record);
};
