// Showing SDP: what the transmitter's senders offer, and what the receiver's receivers have staged.

#include "MainWindow.h"

#include "nmos/NmosClient.h"
#include "widgets/MessageBox.h"
#include "widgets/ModalDialog.h"
#include "widgets/SdpDialog.h"

namespace {

// One SDP as it appears in the dialog.
QString block(const QString &sdp)
{
    return sdp + QLatin1String("\n\n\n");
}

QString blockUnlessEmpty(const QString &sdp)
{
    return sdp.isEmpty() ? QString() : block(sdp);
}

// The sender's SDP; empty when there is none. Many senders publish theirs only once they are
// active.
QString offeredSdp(NmosClient &nmos, const NmosClient::SenderLookup &sender)
{
    QString sdp;
    if (!nmos.fetchSenderSdp(sender, &sdp) && nmos.activateSender(sender)) {
        nmos.fetchSenderSdp(sender, &sdp);
    }
    return sdp;
}

} // namespace

void MainWindow::showTxSdp()
{
    NmosClient::SenderLookup sender;
    QString text;
    if (runCommand([&] { return readTxSdp(&sender, &text); })) {
        showSdp(QStringLiteral("Sender %1").arg(sender.label), text);
    }
}

void MainWindow::showRxSdp()
{
    NmosClient::ReceiverLookup receiver;
    QString text;
    if (runCommand([&] { return readRxSdp(&receiver, &text); })) {
        showSdp(QStringLiteral("Sender %1 (from receiver node)").arg(receiver.label), text);
    }
}

// The selector is read again before each sibling is looked up: a change of the host made meanwhile
// takes effect for the siblings.
std::optional<Message> MainWindow::readTxSdp(NmosClient::SenderLookup *sender, QString *text)
{
    const QString id = selectedId(txCombo);
    if (!nmos->findSender(selectedHost(txCombo), NmosClient::Video, sender, id)) {
        return Message{QMessageBox::Warning, QStringLiteral("No Sender"),
                       QStringLiteral("No sender found on transmitter node.")};
    }
    const QString video = offeredSdp(*nmos, *sender);
    if (video.isEmpty()) {
        return Message{QMessageBox::Warning, QStringLiteral("SDP"),
                       QStringLiteral("Failed to fetch SDP from sender.")};
    }
    *text = block(video);
    nmos->fillDeviceSenders(sender);
    const auto append = [this, text](NmosClient::FormatKind kind, const QString &siblingId) {
        NmosClient::SenderLookup sibling;
        if (!siblingId.isEmpty()
            && nmos->findSender(selectedHost(txCombo), kind, &sibling, siblingId)) {
            *text += blockUnlessEmpty(offeredSdp(*nmos, sibling));
        }
    };
    append(NmosClient::Audio, sender->audioSenderId);
    append(NmosClient::Data, sender->dataSenderId);
    return {};
}

std::optional<Message> MainWindow::readRxSdp(NmosClient::ReceiverLookup *receiver, QString *text)
{
    const QString id = selectedId(rxCombo);
    if (!nmos->findReceiver(selectedHost(rxCombo), NmosClient::Video, receiver, id)) {
        return Message{QMessageBox::Information, QStringLiteral("Info"),
                       QStringLiteral("No senders on the receiver node to display SDP from.")};
    }
    QString video;
    if (!nmos->fetchReceiverSdp(*receiver, &video)) {
        return Message{QMessageBox::Warning, QStringLiteral("SDP"),
                       QStringLiteral("Nothing is connected/Failed to fetch SDP.")};
    }
    *text = block(video);
    nmos->fillDeviceReceivers(receiver);
    const auto append = [this, text](NmosClient::FormatKind kind, const QString &siblingId) {
        NmosClient::ReceiverLookup sibling;
        QString sdp;
        if (!siblingId.isEmpty()
            && nmos->findReceiver(selectedHost(rxCombo), kind, &sibling, siblingId)
            && nmos->fetchReceiverSdp(sibling, &sdp)) {
            *text += blockUnlessEmpty(sdp);
        }
    };
    append(NmosClient::Audio, receiver->audioReceiverId);
    append(NmosClient::Data, receiver->dataReceiverId);
    return {};
}

void MainWindow::showSdp(const QString &caption, const QString &text)
{
    SdpDialog dialog(caption, text, this);
    runModal(&dialog);
}
