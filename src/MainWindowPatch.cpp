// Connect and disconnect.

#include "MainWindow.h"

#include "nmos/IntakeQueue.h"
#include "nmos/NmosClient.h"

namespace {

const QLatin1String audioFailed("Patch failed on audio:\n");
const QLatin1String ancillaryFailed("Patch failed on ancillary:\n");

QString videoFailed(const QString &error)
{
    return QStringLiteral("Patch failed on video:\n") + error;
}

} // namespace

void MainWindow::doConnect()
{
    const IntakeQueue::Command command(intakes);
    const QString title = QStringLiteral("Connect");
    const QString txHost = selectedHost(txCombo);
    const QString rxHost = selectedHost(rxCombo);

    NmosClient::SenderLookup sender;
    if (!nmos->findSender(txHost, 0, &sender, selectedId(txCombo))) {
        showMessage(QMessageBox::Warning, title,
                    QStringLiteral("No video sender found on transmitter node."));
        return;
    }
    NmosClient::ReceiverLookup receiver;
    if (!nmos->findReceiver(rxHost, 0, &receiver, selectedId(rxCombo))) {
        showMessage(QMessageBox::Warning, title,
                    QStringLiteral("No video receiver found on receiver node."));
        return;
    }
    nmos->fillDeviceSenders(&sender);
    nmos->fillDeviceReceivers(&receiver);

    QString error;
    if (!nmos->connectReceiver(sender, receiver, &error)) {
        showMessage(QMessageBox::Critical, title, videoFailed(error));
        return;
    }
    // Audio and data are patched independently of each other; the video stays patched whatever they
    // do.
    QString report;
    const auto patch = [&](int kind, const QString &senderId, const QString &receiverId,
                           QLatin1String failed) {
        NmosClient::SenderLookup from;
        NmosClient::ReceiverLookup to;
        if (nmos->findSender(txHost, kind, &from, senderId)
            && nmos->findReceiver(rxHost, kind, &to, receiverId)
            && !nmos->connectReceiver(from, to, &error)) {
            report += failed + error + QLatin1Char('\n');
        }
    };
    patch(1, sender.audioSenderId, receiver.audioReceiverId, audioFailed);
    patch(2, sender.dataSenderId, receiver.dataReceiverId, ancillaryFailed);
    if (!report.isEmpty()) {
        showMessage(QMessageBox::Information, title, report);
    }
}

void MainWindow::doDisconnect()
{
    const IntakeQueue::Command command(intakes);
    const QString title = QStringLiteral("Disconnect");
    const QString host = selectedHost(rxCombo);

    NmosClient::ReceiverLookup receiver;
    if (!nmos->findReceiver(host, 0, &receiver, {})) {
        showMessage(QMessageBox::Warning, title,
                    QStringLiteral("No video receiver found on receiver node."));
        return;
    }
    QString error;
    if (!nmos->disconnectReceiver(receiver, &error)) {
        showMessage(QMessageBox::Critical, title, videoFailed(error));
        return;
    }
    nmos->fillDeviceReceivers(&receiver);

    QString report;
    const auto release = [&](int kind, const QString &id, QLatin1String failed) {
        NmosClient::ReceiverLookup sibling;
        if (nmos->findReceiver(host, kind, &sibling, id)
            && !nmos->disconnectReceiver(sibling, &error)) {
            report += failed + error + QLatin1Char('\n');
        }
    };
    release(1, receiver.audioReceiverId, audioFailed);
    release(2, receiver.dataReceiverId, ancillaryFailed);
    if (!report.isEmpty()) {
        showMessage(QMessageBox::Information, title, report);
    }
}
