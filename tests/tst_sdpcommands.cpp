// The two "Show SDP…" commands against real nodes, and the dialog that they show.

#include "support/IntakeWindow.h"
#include "support/ProgramTest.h"
#include "support/TestMain.h"
#include "widgets/SdpDialog.h"

#include <QTextEdit>

namespace {

const QString showTx = "Transmitter IP: show SDP"_s;
const QString showRx = "Receiver IP: show SDP"_s;
const QString disconnectCommand = "Disconnect Rx"_s;

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
        const SimulatedNode rx(NodeDescription::receiver());
        SdpWindow w;
        Window::enter(w.tx, tx.host());
        Window::enter(w.rx, rx.host());
        w.press("Connect (Tx->Rx)"_s);
        w.press(showRx);
        w.press(showTx);
        QCOMPARE(
            w.titles,
            (QStringList{"SDP • Sender Video (from receiver node)"_s, "SDP • Sender Video"_s}));
        const QString offered = SdpWindow::copied();
        w.press(showRx);
        QCOMPARE(SdpWindow::copied(), offered);
        QVERIFY(tx.requests("PATCH"_s).isEmpty());
    }

    void followsTheChosenDevice()
    {
        // Of three devices the first has no video, and the last is chosen.
        NodeDescription sending = NodeDescription::transmitter();
        sending.devices = QVector<DeviceDescription>(3, sending.devices.constFirst());
        sending.devices.first().senders.removeFirst();
        sending.devices.last().senders.first().label = "Second"_s;
        NodeDescription receiving = NodeDescription::receiver();
        receiving.devices = QVector<DeviceDescription>(3, receiving.devices.constFirst());
        receiving.devices.first().receivers.removeFirst();
        receiving.devices.last().receivers.first().label = "Second"_s;
        const SimulatedNode tx(sending);
        const SimulatedNode rx(receiving);
        SdpWindow w;
        w.report(tx, "Cam"_s);
        w.report(rx, "Mon"_s);
        QVERIFY(Window::choose(w.tx, entry("Cam"_s, tx, "Second"_s)));
        QVERIFY(Window::choose(w.rx, entry("Mon"_s, rx, "Second"_s)));
        w.press("Connect (Tx->Rx)"_s);
        QString offered;
        for (const Essence essence : essences) {
            const QString sender = tx.senderIds(essence).constLast();
            offered += block(tx.manifest(sender));
            QStringList connected;
            const auto receivers = rx.receiverIds(essence);
            for (const QString &receiver : receivers) {
                connected.append(
                    rx.receiverActive(receiver).value(QLatin1String("sender_id")).toString());
            }
            QCOMPARE(connected.takeLast(), sender);
            QVERIFY(connected.join(QString()).isEmpty());
        }
        for (const QString &command : {showTx, showRx}) {
            QGuiApplication::clipboard()->clear();
            w.press(command);
            QCOMPARE(SdpWindow::copied(), offered);
        }

        // Disconnecting goes by the node: its first device with video.
        w.press(disconnectCommand);
        QStringList released;
        const auto patches = rx.requests("PATCH"_s).mid(3);
        for (const LoggedRequest &patch : patches) {
            released.append(patch.path);
        }
        QStringList first;
        for (const Essence essence : essences) {
            first.append(SimulatedNode::receiverStagedPath(
                rx.receiverIds(essence).at(essence == Essence::Video ? 0 : 1)));
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

        // Audio and data are looked up at the host that the field names by then.
        SimulatedNode twin;
        node.clearFaults();
        node.clearRequests();
        node.setRequestObserver([&node, &video](const LoggedRequest &request) {
            if (request.path == SimulatedNode::manifestPath(video)) {
                node.setFault(SimulatedNode::collectionPath("devices"_s), Fault::hang());
            }
        });
        w.whenAsked(node, "/devices"_s, [&] {
            Window::enter(w.tx, twin.host());
            twin.clearRequests();
            node.clearFaults();
        });
        w.press(showTx);
        QCOMPARE(twin.requestLines().filter(sendersPath).size(), 2);
    }

    void tellsWhatIsMissing_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<bool>("isNode");
        QTest::addColumn<ShownBox>("box");
        const auto row = [](const char *name, const QString &command, bool isNode,
                            const ShownBox &box) {
            QTest::newRow(name) << command << isNode << box;
        };
        row("there is no transmitter", showTx, false,
            {"No Sender"_s, "No sender found on transmitter node."_s, QMessageBox::Warning});
        row("the sender gives no SDP", showTx, true,
            {"SDP"_s, "Failed to fetch SDP from sender."_s, QMessageBox::Warning});
        row("there is no receiver", showRx, false,
            {"Info"_s, "No senders on the receiver node to display SDP from."_s,
             QMessageBox::Information});
        row("the receiver has nothing staged", showRx, true,
            {"SDP"_s, "Nothing is connected/Failed to fetch SDP."_s, QMessageBox::Warning});
        row("there is no receiver to disconnect", disconnectCommand, false,
            {"Disconnect"_s, "No video receiver found on receiver node."_s, QMessageBox::Warning});
    }

    void tellsWhatIsMissing()
    {
        QFETCH(const QString, command);
        QFETCH(const bool, isNode);
        QFETCH(const ShownBox, box);
        SimulatedNode tx;
        const SimulatedNode rx(NodeDescription::receiver());
        tx.setFault(SimulatedNode::manifestPath(tx.senderIds(Essence::Video).value(0)),
                    Fault::status(500));
        SdpWindow w;
        if (isNode) {
            Window::enter(w.tx, tx.host());
            Window::enter(w.rx, rx.host());
        }
        w.press(command);
        QCOMPARE(w.boxes.take(), QList<ShownBox>{box});
        QVERIFY(w.titles.isEmpty());
    }

    void showsAndCopiesWhatWasPassed_data()
    {
        QTest::addColumn<QString>("passed");
        const auto row = [](const char *title, const QString &passed) {
            QTest::newRow(title) << passed;
        };
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
        SdpDialog dialog("%1 <b>&amp;"_s, passed);
        dialog.open();
        QCOMPARE(dialog.windowTitle(), "SDP \u2022 %1 <b>&amp;"_s);
        QCOMPARE(SdpDialog({}, {}).windowTitle(), "SDP"_s);
        auto *const view = dialog.findChild<QTextEdit *>();
        QCOMPARE(view->wordWrapMode() == QTextOption::WrapAnywhere,
                 passed.contains(QString(2001, QLatin1Char('x'))));
        QVERIFY(view->toPlainText() == shown);
        QCOMPARE(view->document()->blockCount(), shown.count(QLatin1Char('\n')) + 1);
        // It can be selected, and not be edited.
        QVERIFY(view->textInteractionFlags() & Qt::TextSelectableByMouse);
        QTest::keyClick(view, Qt::Key_X);
        QVERIFY(view->toPlainText() == shown);

        QGuiApplication::clipboard()->setText("something else"_s);
        WindowDriver::press(&dialog, "Copy SDP"_s);
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
