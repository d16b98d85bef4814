// Connect and disconnect.

#include "MainWindow.h"

#include "nmos/NmosClient.h"
#include "nmos/NodeEndpoint.h"
#include "widgets/MessageBox.h"

namespace {

Message warning(const QString &title, const QString &text)
{
    return {QMessageBox::Warning, title, text};
}

Message videoFailed(const QString &title, const QString &error)
{
    return {QMessageBox::Critical, title,
            QStringLiteral("Patch failed on video:\n") + shownNodeText(error)};
}

// Collects the errors of audio and data. Either may fail without the other.
class Report {
public:
    void add(QLatin1String failed, const QString &error)
    {
        text += failed + shownNodeText(error) + QLatin1Char('\n');
    }

    std::optional<Message> message(const QString &title) const
    {
        if (text.isEmpty()) {
            return {};
        }
        return Message{QMessageBox::Information, title, text};
    }

private:
    QString text;
};

const QLatin1String audioFailed("Patch failed on audio:\n");
const QLatin1String ancillaryFailed("Patch failed on ancillary:\n");

// Patches the receiving endpoint to the transmitting one: video, then the audio and the data of
// their devices. Returns what went wrong, if anything did. What was patched stays patched whatever
// fails later.
std::optional<Message> connectEndpoints(NmosClient &nmos, const NodeEndpoint &tx,
                                        const NodeEndpoint &rx)
{
    const QString title = QStringLiteral("Connect");
    NmosClient::SenderLookup sender;
    if (!nmos.findSender(tx.host, NmosClient::Video, &sender, tx.id)) {
        return warning(title, QStringLiteral("No video sender found on transmitter node."));
    }
    NmosClient::ReceiverLookup receiver;
    if (!nmos.findReceiver(rx.host, NmosClient::Video, &receiver, rx.id)) {
        return warning(title, QStringLiteral("No video receiver found on receiver node."));
    }
    nmos.fillDeviceSenders(&sender);
    nmos.fillDeviceReceivers(&receiver);

    QString error;
    if (!nmos.connectReceiver(sender, receiver, &error)) {
        return videoFailed(title, error);
    }
    Report report;
    const auto patch = [&](NmosClient::FormatKind kind, const QString &senderId,
                           const QString &receiverId, QLatin1String failed) {
        NmosClient::SenderLookup from;
        NmosClient::ReceiverLookup to;
        if (nmos.findSender(tx.host, kind, &from, senderId)
            && nmos.findReceiver(rx.host, kind, &to, receiverId)
            && !nmos.connectReceiver(from, to, &error)) {
            report.add(failed, error);
        }
    };
    patch(NmosClient::Audio, sender.audioSenderId, receiver.audioReceiverId, audioFailed);
    patch(NmosClient::Data, sender.dataSenderId, receiver.dataReceiverId, ancillaryFailed);
    return report.message(title);
}

// Disconnects the node's first video receiver and the audio and data receivers of its device.
std::optional<Message> disconnectNode(NmosClient &nmos, const QString &host)
{
    const QString title = QStringLiteral("Disconnect");
    NmosClient::ReceiverLookup receiver;
    if (!nmos.findReceiver(host, NmosClient::Video, &receiver, {})) {
        return warning(title, QStringLiteral("No video receiver found on receiver node."));
    }
    QString error;
    if (!nmos.disconnectReceiver(receiver, &error)) {
        return videoFailed(title, error);
    }
    nmos.fillDeviceReceivers(&receiver);

    Report report;
    const auto release = [&](NmosClient::FormatKind kind, const QString &id, QLatin1String failed) {
        NmosClient::ReceiverLookup sibling;
        if (nmos.findReceiver(host, kind, &sibling, id)
            && !nmos.disconnectReceiver(sibling, &error)) {
            report.add(failed, error);
        }
    };
    release(NmosClient::Audio, receiver.audioReceiverId, audioFailed);
    release(NmosClient::Data, receiver.dataReceiverId, ancillaryFailed);
    return report.message(title);
}

} // namespace

void MainWindow::doConnect()
{
    // Read everything now: the selectors may change while a request waits.
    const NodeEndpoint tx{selectedHost(txCombo), selectedId(txCombo)};
    const NodeEndpoint rx{selectedHost(rxCombo), selectedId(rxCombo)};
    runCommand([&] { return connectEndpoints(*nmos, tx, rx); });
}

void MainWindow::doDisconnect()
{
    const QString host = selectedHost(rxCombo);
    runCommand([&] { return disconnectNode(*nmos, host); });
}
