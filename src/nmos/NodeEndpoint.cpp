#include "nmos/NodeEndpoint.h"

#include "nmos/NmosClient.h"

NodeEndpoint NodeEndpoint::of(const QVariant &record)
{
    if (record.userType() == qMetaTypeId<NmosClient::ReceiverConnection>()) {
        const auto receiver = record.value<NmosClient::ReceiverConnection>();
        return {receiver.host, receiver.id};
    }
    if (record.userType() == qMetaTypeId<NmosClient::SenderConnection>()) {
        const auto sender = record.value<NmosClient::SenderConnection>();
        return {sender.host, sender.id};
    }
    return {};
}
