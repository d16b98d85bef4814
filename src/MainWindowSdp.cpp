// Showing SDP: what the transmitter's senders offer, and what the receiver's receivers have staged.

#include "MainWindow.h"

#include "nmos/IntakeQueue.h"
#include "nmos/NmosClient.h"
#include "widgets/SdpDialog.h"

#include <QComboBox>

namespace {

constexpr int videoKind = 0;
constexpr int audioKind = 1;
constexpr int dataKind = 2;

// A document as it stands in the dialog's text.
QString block(const QString &sdp)
{
    return sdp + QLatin1String("\n\n\n");
}

// The sender's SDP; empty when there is none. Many senders publish theirs only once they are
// active.
QString offeredSdp(NmosClient *nmos, const NmosClient::SenderLookup &sender)
{
    QString sdp;
    if (!nmos->fetchSenderSdp(sender, &sdp) && nmos->activateSender(sender)) {
        nmos->fetchSenderSdp(sender, &sdp);
    }
    return sdp;
}

} // namespace

void MainWindow::showTxSdp()
{
    NmosClient::SenderLookup sender;
    QString text;
    {
        const IntakeQueue::Command command(intakes);
        const QString id = selectedId(txCombo);
        if (!nmos->findSender(selectedHost(txCombo), videoKind, &sender, id)) {
            showMessage(QMessageBox::Warning, QStringLiteral("No Sender"),
                        QStringLiteral("No sender found on transmitter node."));
            return;
        }
        const QString video = offeredSdp(nmos, sender);
        if (video.isEmpty()) {
            showMessage(QMessageBox::Warning, QStringLiteral("SDP"),
                        QStringLiteral("Failed to fetch SDP from sender."));
            return;
        }
        text = block(video);
        nmos->fillDeviceSenders(&sender);
        const auto append = [this, &text](int kind, const QString &siblingId) {
            NmosClient::SenderLookup sibling;
            if (siblingId.isEmpty()
                || !nmos->findSender(selectedHost(txCombo), kind, &sibling, siblingId)) {
                return;
            }
            const QString sdp = offeredSdp(nmos, sibling);
            text += sdp.isEmpty() ? QString() : block(sdp);
        };
        append(audioKind, sender.audioSenderId);
        append(dataKind, sender.dataSenderId);
    }
    showSdp(QStringLiteral("Sender %1").arg(sender.label), text);
}

void MainWindow::showRxSdp()
{
    NmosClient::ReceiverLookup receiver;
    QString text;
    {
        const IntakeQueue::Command command(intakes);
        const QString id = selectedId(rxCombo);
        if (!nmos->findReceiver(selectedHost(rxCombo), videoKind, &receiver, id)) {
            showMessage(QMessageBox::Information, QStringLiteral("Info"),
                        QStringLiteral("No senders on the receiver node to display SDP from."));
            return;
        }
        QString video;
        if (!nmos->fetchReceiverSdp(receiver, &video)) {
            showMessage(QMessageBox::Warning, QStringLiteral("SDP"),
                        QStringLiteral("Nothing is connected/Failed to fetch SDP."));
            return;
        }
        text = block(video);
        nmos->fillDeviceReceivers(&receiver);
        const auto append = [this, &text](int kind, const QString &siblingId) {
            NmosClient::ReceiverLookup sibling;
            QString sdp;
            if (!siblingId.isEmpty()
                && nmos->findReceiver(selectedHost(rxCombo), kind, &sibling, siblingId)
                && nmos->fetchReceiverSdp(sibling, &sdp) && !sdp.isEmpty()) {
                text += block(sdp);
            }
        };
        append(audioKind, receiver.audioReceiverId);
        append(dataKind, receiver.dataReceiverId);
    }
    showSdp(QStringLiteral("Sender %1 (from receiver node)").arg(receiver.label), text);
}

void MainWindow::showSdp(const QString &caption, const QString &text)
{
    SdpDialog dialog(caption, text, this);
    dialog.exec();
}
