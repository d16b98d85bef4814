// The IS-04 queries that fill the records.

#include "nmos/NmosClient.h"
#include "nmos/NmosNames.h"
#include "nmos/NodeRecords.h"

QList<NmosClient::ReceiverConnection> NmosClient::listReceivers(const QString &host,
                                                                const QString &nodeName)
{
    const QJsonArray receivers = getJsonArray(nodeApi(host, Resource::receivers));
    return NodeRecords::listReceivers(receivers, host, nodeName);
}

QList<NmosClient::SenderConnection> NmosClient::listSenders(const QString &host,
                                                            const QString &nodeName)
{
    const QJsonArray flows = getJsonArray(nodeApi(host, Resource::flows));
    const QJsonArray senders = getJsonArray(nodeApi(host, Resource::senders));
    return NodeRecords::listSenders(flows, senders, host, nodeName);
}

bool NmosClient::findReceiver(const QString &host, int kind, ReceiverLookup *receiver,
                              const QString &preferredId)
{
    receiver->id.clear();
    const QJsonArray receivers = getJsonArray(nodeApi(host, Resource::receivers));
    return NodeRecords::findReceiver(receivers, host, kind, receiver, preferredId);
}

bool NmosClient::findSender(const QString &host, int kind, SenderLookup *sender,
                            const QString &preferredId)
{
    sender->id.clear();
    sender->manifestHref.clear();
    QLatin1String key = Key::id;
    QString wanted = preferredId;
    if (preferredId.isEmpty()) {
        key = Key::flowId;
        const QJsonArray flows = getJsonArray(nodeApi(host, Resource::flows));
        if (flows.isEmpty()) {
            return false;
        }
        wanted = NodeRecords::findFlow(flows, kind);
    }
    const QJsonArray senders = getJsonArray(nodeApi(host, Resource::senders));
    return NodeRecords::findSender(senders, host, key, wanted, sender);
}

bool NmosClient::fillDeviceReceivers(ReceiverLookup *receiver)
{
    const QString host = receiver->host;
    const QJsonArray devices = getJsonArray(nodeApi(host, Resource::devices));
    if (devices.isEmpty()) {
        return false;
    }
    const QJsonArray receivers = getJsonArray(nodeApi(host, Resource::receivers));
    if (receivers.isEmpty()) {
        return false;
    }
    NodeRecords::fillDeviceReceivers(devices, receivers, receiver);
    return true;
}

bool NmosClient::fillDeviceSenders(SenderLookup *sender)
{
    const QString host = sender->host;
    const QJsonArray devices = getJsonArray(nodeApi(host, Resource::devices));
    if (devices.isEmpty()) {
        return false;
    }
    const QJsonArray senders = getJsonArray(nodeApi(host, Resource::senders));
    if (senders.isEmpty()) {
        return false;
    }
    const QJsonArray flows = getJsonArray(nodeApi(host, Resource::flows));
    NodeRecords::fillDeviceSenders(devices, senders, flows, sender);
    return true;
}
