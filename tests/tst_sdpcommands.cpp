// The two "Show SDP…" commands against real nodes, and the dialog that they show.

#include "support/IntakeWindow.h"
#include "widgets/SdpDialog.h"

#include <QFontDatabase>
#include <QRegularExpression>
#include <QTextEdit>

namespace {

const Essence essences[] = {Essence::Video, Essence::Audio, Essence::Data};

// A window whose SDP dialogs are copied to the clipboard and closed. Notes their titles.
struct SdpWindow : IntakeWindow {
    SdpWindow()
    {
        device = [this](QDialog *dialog) {
            titles.append(dialog->windowTitle());
            WindowDriver::press(dialog, "Copy SDP"_s);
            WindowDriver::press(dialog, "Close"_s);
        };
    }

    QStringList titles;

    static QString copied()
    {
        return QGuiApplication::clipboard()->text();
    }
};

// What the dialog copies of an SDP: the text view turns CR LF into LF.
QString block(const QByteArray &sdp)
{
    return QString::fromUtf8(sdp).replace(QLatin1String("\r\n"), QLatin1String("\n")) + "\n\n\n"_s;
}

} // namespace

class TestSdpCommands final : public ProgramTest {
    Q_OBJECT

private slots:
    void showsWhatIsStaged()
    {
        const SimulatedNode tx;
        SimulatedNode rx(NodeDescription::receiver());
        SdpWindow w;
        Window::enter(w.tx, tx.host());
        Window::enter(w.rx, rx.host());
        w.press(connectCommand);
        w.press(showRx);
        w.press(showTx);
        QCOMPARE(
            w.titles,
            (QStringList{"SDP • Sender Video (from receiver node)"_s, "SDP • Sender Video"_s}));
        const QString offered = SdpWindow::copied();
        w.press(showRx);
        QCOMPARE(SdpWindow::copied(), offered);
        QVERIFY(tx.requests("PATCH"_s).isEmpty());
        rx.setFault(SimulatedNode::receiverStagedPath(rx.receiverIds(Essence::Audio).value(0)),
                    Fault::status(500));
        w.press(showRx);
        QCOMPARE(SdpWindow::copied(),
                 block(tx.manifest(tx.senderIds().at(0)))
                     + block(tx.manifest(tx.senderIds().at(2))));
    }

    void followsTheChosenDevice_data()
    {
        columns<bool>("isWhole"); // else the node's first audio and data are patched, and not shown
        row("with audio and data", true);
        row("with video alone", false);
    }

    void followsTheChosenDevice()
    {
        QFETCH(const bool, isWhole);
        // Of three devices the first has no video, and the last is chosen.
        NodeDescription sending = NodeDescription::transmitter();
        sending.devices = QVector<DeviceDescription>(3, sending.devices.constFirst());
        sending.devices.first().senders.removeFirst();
        sending.devices.last().senders.first().label = "Second"_s;
        NodeDescription receiving = NodeDescription::receiver();
        receiving.devices = QVector<DeviceDescription>(3, receiving.devices.constFirst());
        receiving.devices.first().receivers.removeFirst();
        receiving.devices.last().receivers.first().label = "Second"_s;
        for (int i = isWhole ? 3 : 1; i < 3; ++i) {
            sending.devices[i].senders.resize(1);
            receiving.devices[i].receivers.resize(1);
        }
        const SimulatedNode tx(sending);
        SimulatedNode rx(receiving);
        // Before connecting and after disconnecting.
        const auto asksForDevicesFirst = [&rx] {
            const QStringList asked = rx.requestLines();
            return asked.indexOf("GET "_s + devicesPath)
                < asked.indexOf(QRegularExpression("PATCH .*"_s));
        };
        SdpWindow w;
        w.report(tx, "Cam"_s);
        w.report(rx, "Mon"_s);
        QVERIFY(Window::choose(w.tx, entry("Cam"_s, tx, "Second"_s)));
        QVERIFY(Window::choose(w.rx, entry("Mon"_s, rx, "Second"_s)));
        w.press(connectCommand);
        QVERIFY(asksForDevicesFirst());
        QString offered;
        for (const Essence essence : essences) {
            const bool isChosen = isWhole || essence == Essence::Video;
            const QStringList senders = tx.senderIds(essence);
            const QString sender = isChosen ? senders.constLast() : senders.constFirst();
            offered += isChosen ? block(tx.manifest(sender)) : QString();
            QStringList connected;
            const auto receivers = rx.receiverIds(essence);
            for (const QString &receiver : receivers) {
                connected.append(
                    rx.receiverActive(receiver).value(QLatin1String("sender_id")).toString());
            }
            QCOMPARE(isChosen ? connected.takeLast() : connected.takeFirst(), sender);
            QVERIFY(connected.join(QString()).isEmpty());
        }
        for (const QString &command : {showTx, showRx}) {
            QGuiApplication::clipboard()->clear();
            w.press(command);
            QCOMPARE(SdpWindow::copied(), offered);
        }

        // Disconnecting goes by the node: its first device with video.
        rx.clearRequests();
        w.press(disconnectCommand);
        QVERIFY(!asksForDevicesFirst());
        QStringList released;
        const auto patches = rx.requests("PATCH"_s);
        for (const LoggedRequest &patch : patches) {
            released.append(patch.path);
        }
        QStringList first;
        for (const Essence essence : essences) {
            first.append(SimulatedNode::receiverStagedPath(
                rx.receiverIds(essence).at(isWhole && essence != Essence::Video ? 1 : 0)));
        }
        QCOMPARE(released, first);
    }

    void leavesOutWhatFails()
    {
        SimulatedNode node;
        const QString video = node.senderIds(Essence::Video).value(0);
        const QString audio = node.senderIds(Essence::Audio).value(0);
        const QString data = node.senderIds(Essence::Data).value(0);
        node.setFault(SimulatedNode::manifestPath(video), Fault::untilActivated());
        node.setFault(SimulatedNode::manifestPath(audio), Fault::status(404));
        node.setFault(SimulatedNode::senderStagedPath(audio), Fault::status(423));
        SdpWindow w;
        Window::enter(w.tx, node.host());
        w.press(showTx);
        QCOMPARE(SdpWindow::copied(), block(node.manifest(video)) + block(node.manifest(data)));
        QCOMPARE(node.requests("PATCH"_s).size(), 2);
    }

    void looksForSiblingsWhereTheFieldSays()
    {
        NodeDescription both = NodeDescription::transmitter();
        both.devices.first().receivers = NodeDescription::receiver().devices.first().receivers;
        SimulatedNode node(both);
        SimulatedNode twin(both);
        SdpWindow w;
        Window::enter(w.tx, node.host());
        Window::enter(w.rx, node.host());
        w.press(connectCommand);
        for (QComboBox *selector : {w.tx, w.rx}) {
            node.setFault(devicesPath, Fault::hang());
            node.clearRequests();
            w.whenAsked(node, devicesPath, [&] {
                Window::enter(selector, twin.host());
                twin.clearRequests();
                node.clearFaults();
            });
            w.press(selector == w.tx ? showTx : showRx);
            const QString path = selector == w.tx ? sendersPath : receiversPath;
            QCOMPARE(twin.requestLines().filter(path).size(), 2);
        }
    }

    void tellsWhatFails_data()
    {
        columns<QString, QString, QString, QString>("command", "tx", "rx", "box"); // %1 is the host
        const QString host = "%1"_s;
        row("nothing to connect", connectCommand, ""_s, ""_s,
            "Warning: Connect: No video sender found on transmitter node."_s);
        row("a trailing word makes another host", connectCommand, "%1 studio"_s, host,
            "Warning: Connect: No video sender found on transmitter node."_s);
        row("no receiver to connect", connectCommand, host, ""_s,
            "Warning: Connect: No video receiver found on receiver node."_s);
        row("no receiver to disconnect", disconnectCommand, host, ""_s,
            "Warning: Disconnect: No video receiver found on receiver node."_s);
        row("a refused patch", connectCommand, host, host,
            "Critical: Connect: Patch failed on video:\nError transferring "_s);
        row("a refused disconnection", disconnectCommand, host, host,
            "Critical: Disconnect: Patch failed on video:\nError transferring "_s);
        row("no transmitter", showTx, ""_s, host,
            "Warning: No Sender: No sender found on transmitter node."_s);
        row("no SDP of the sender", showTx, host, host,
            "Warning: SDP: Failed to fetch SDP from sender."_s);
        row("no receiver", showRx, host, ""_s,
            "Information: Info: No senders on the receiver node to display SDP from."_s);
        row("nothing staged", showRx, host, host,
            "Warning: SDP: Nothing is connected/Failed to fetch SDP."_s);
    }

    void tellsWhatFails()
    {
        QFETCH(const QString, command);
        QFETCH(QString, tx);
        QFETCH(QString, rx);
        QFETCH(const QString, box);
        SimulatedNode sending;
        SimulatedNode receiving(NodeDescription::receiver());
        if (command == showTx) {
            sending.setFault(SimulatedNode::manifestPath(sending.senderIds().at(0)),
                             Fault::status(500));
        }
        receiving.setFault("*"_s, Fault::status(423).onMethod("PATCH"));
        SdpWindow w;
        Window::enter(w.tx, tx.replace("%1"_s, sending.host()));
        Window::enter(w.rx, rx.replace("%1"_s, receiving.host()));
        w.press(command);
        const QString shown = w.boxes.take().join(QLatin1Char('|'));
        const bool isPatch = box.startsWith(QLatin1String("Critical"));
        QCOMPARE(isPatch ? shown.left(box.size()) : shown, box);
        QCOMPARE(receiving.requests("PATCH"_s).size(), isPatch ? 1 : 0);
        QVERIFY(w.titles.isEmpty());
    }

    void showsAndCopiesWhatWasPassed_data()
    {
        columns<QString>("passed");
        row("nothing", QString());
        row("lines that end in CR LF, and empty ones", "v=0\r\ns=A\r\n\n\n\n"_s);
        row("markup", "<html><b>s=</b>&amp; <img src='x'>\n"_s);
        row("text that is not Latin", "s=カメラ \U0001F3A5\tä\n"_s);
        row("five megabytes of lines", "a=fmtp:96 width=1920\r\n"_s.repeated(230000));
        row("two thousand characters without a blank", QString(2000, QLatin1Char('x')));
        // Fast only while the view may wrap anywhere: it breaks such a text at no blank.
        row("half a megabyte without a blank", QString(500000, QLatin1Char('x')));
        row("2,001 characters without a blank, among others",
            "v=0\n"_s + QString(2001, QLatin1Char('x')) + " a"_s);
    }

    void showsAndCopiesWhatWasPassed()
    {
        QFETCH(const QString, passed);
        const QString shown = QString(passed).replace(QLatin1String("\r\n"), QLatin1String("\n"));
        QApplication::setFont(QFont("another"_s), "QTextEdit"); // than the one of fixed pitch
        SdpDialog dialog("%1 <b>&amp;"_s, passed);
        dialog.open();
        QCOMPARE(dialog.windowTitle(), "SDP \u2022 %1 <b>&amp;"_s);
        QCOMPARE(SdpDialog({}, {}).windowTitle(), "SDP"_s);
        QCOMPARE(dialog.size(), QSize(700, 500));
        const auto buttons = dialog.findChildren<QPushButton *>();
        QCOMPARE(buttons.at(0)->text(), "Copy SDP"_s);
        QVERIFY(buttons.at(0)->x() < buttons.at(1)->x());
        auto *const view = dialog.findChild<QTextEdit *>();
        QCOMPARE(view->font().family(),
                 QFontDatabase::systemFont(QFontDatabase::FixedFont).family());
        QCOMPARE(view->wordWrapMode() == QTextOption::WrapAnywhere,
                 passed.contains(QString(2001, QLatin1Char('x'))));
        QVERIFY(view->toPlainText() == shown);
        QCOMPARE(view->document()->blockCount(), shown.count(QLatin1Char('\n')) + 1);
        // It can be selected, and not be edited.
        QVERIFY(view->textInteractionFlags() & Qt::TextSelectableByMouse);
        QTest::keyClick(view, Qt::Key_X);
        QVERIFY(view->toPlainText() == shown);

        QGuiApplication::clipboard()->setText("something else"_s);
        QTest::keyClick(view, Qt::Key_Return);
        QVERIFY(QGuiApplication::clipboard()->text() == shown);
        QVERIFY(dialog.isVisible());
        WindowDriver::press(&dialog, "Close"_s);
        QVERIFY(!dialog.isVisible() && dialog.result() == QDialog::Accepted);
        dialog.open();
        QTest::keyClick(view, Qt::Key_Escape);
        QVERIFY(!dialog.isVisible() && dialog.result() == QDialog::Rejected);
    }
};

NODEPATCH_TEST_MAIN(TestSdpCommands)
#include "tst_sdpcommands.moc"
