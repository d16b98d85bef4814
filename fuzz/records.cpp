// Making the records that the operator chooses from out of a node's collections. The input's first
// four lines are the bodies of devices, flows, senders and receivers.

#include "Require.h"

#include "net/JsonText.h"
#include "nmos/NmosNames.h"
#include "nmos/NodeRecords.h"

#include <QSet>

namespace {

template <typename Connection>
void requireDistinctLabels(const QList<Connection> &connections)
{
    QSet<QString> labels;
    for (const Connection &connection : connections) {
        require(!connection.label.isEmpty() && !labels.contains(connection.label));
        require(connection.displayName.contains(connection.label));
        labels.insert(connection.label);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input(reinterpret_cast<const char *>(data), static_cast<int>(size));
    const QList<QByteArray> lines = input.split('\n');
    const QJsonArray devices = parseJson(lines.value(0)).array();
    const QJsonArray flows = parseJson(lines.value(1)).array();
    const QJsonArray senders = parseJson(lines.value(2)).array();
    const QJsonArray receivers = parseJson(lines.value(3)).array();
    const QString host = QStringLiteral("192.0.2.1:80");
    requireDistinctLabels(NodeRecords::listReceivers(receivers, host, QStringLiteral("%1")));
    requireDistinctLabels(NodeRecords::listSenders(flows, senders, host, QStringLiteral("%2")));
    for (const int kind : {NmosClient::Video, NmosClient::Audio, NmosClient::Data}) {
        NmosClient::ReceiverLookup receiver;
        const bool found = NodeRecords::findReceiver(receivers, host, kind, &receiver, {});
        require(found == !receiver.id.isEmpty() && (!found || receiver.host == host));
        NodeRecords::fillDeviceReceivers(devices, receivers, &receiver);

        NmosClient::SenderLookup sender;
        const QString flow = NodeRecords::findFlow(flows, kind);
        const bool offers = NodeRecords::findSender(senders, host, Key::flowId, flow, &sender);
        require(offers == (!sender.id.isEmpty() && !sender.manifestHref.isEmpty()));
        NodeRecords::fillDeviceSenders(devices, senders, flows, &sender);
    }
    return 0;
}
