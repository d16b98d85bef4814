// The two "Show SDP…" commands against real nodes, and the dialog that they show.

#include "support/IntakeWindow.h"
#include "support/ProgramTest.h"
#include "support/TestMain.h"
#include "widgets/SdpDialog.h"

#include <QTextEdit>

namespace {

const QString showTx = QStringLiteral("Transmitter IP: show SDP");
const QString showRx = QStringLiteral("Receiver IP: show SDP");
const QString disconnectCommand = QStringLiteral("Disconnect Rx");

const Essence essences[] = {Essence::Video, Essence::Audio, Essence::Data};

// A window whose SDP dialogs are copied to the clipboard and closed. Notes their titles.
struct SdpWindow : IntakeWindow {
    SdpWindow()
    {
        device = [this](QDialog *dialog) {
            titles.append(dialog->windowTitle());
            WindowDriver::press(dialog, QStringLiteral("Copy SDP"));
            WindowDriver::press(dialog, QStringLiteral("Close"));
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
    return QString::fromUtf8(sdp).replace(QLatin1String("\r\n"), QLatin1String("\n"))
        + QStringLiteral("\n\n\n");
}

} // namespace

class TestSdpCommands final : public ProgramTest {
    Q_OBJECT

private slots:
    void showsWhatTheDeviceOffers_data()
    {
        QTest::addColumn<int>("count");
        QTest::newRow("the device sends video") << 1;
        QTest::newRow("the device sends video and audio") << 2;
        QTest::newRow("the device sends video, audio and data") << 3;
    }

    void showsWhatTheDeviceOffers()
    {
        QFETCH(const int, count);
        NodeDescription description = NodeDescription::transmitter();
        description.devices[0].senders.resize(count);
        SimulatedNode node(description);
        QString expected;
        for (int i = 0; i < count; ++i) {
            expected += block(node.manifest(node.senderIds(essences[i]).value(0)));
        }
        SdpWindow w;
        Window::enter(w.tx, node.host());
        w.press(showTx);
        QCOMPARE(SdpWindow::copied(), expected);
        QCOMPARE(w.titles, QStringList{QStringLiteral("SDP • Sender Video")});
        QVERIFY(node.requests(QStringLiteral("PATCH")).isEmpty());
    }

    void showsWhatIsStaged()
    {
        const SimulatedNode tx;
        const SimulatedNode rx(NodeDescription::receiver());
        SdpWindow w;
        Window::enter(w.tx, tx.host());
        Window::enter(w.rx, rx.host());
        w.press(QStringLiteral("Connect (Tx->Rx)"));
        w.press(showRx);
        w.press(showTx);
        QCOMPARE(w.titles,
                 (QStringList{QStringLiteral("SDP • Sender Video (from receiver node)"),
                              QStringLiteral("SDP • Sender Video")}));
        const QString offered = SdpWindow::copied();
        w.press(showRx);
        QCOMPARE(SdpWindow::copied(), offered);
    }

    void followsTheChosenDevice()
    {
        // Of three devices the first has no video, and the last is chosen.
        NodeDescription sending = NodeDescription::transmitter();
        sending.devices = QVector<DeviceDescription>(3, sending.devices.constFirst());
        sending.devices.first().senders.removeFirst();
        sending.devices.last().senders.first().label = QStringLiteral("Second");
        NodeDescription receiving = NodeDescription::receiver();
        receiving.devices = QVector<DeviceDescription>(3, receiving.devices.constFirst());
        receiving.devices.first().receivers.removeFirst();
        receiving.devices.last().receivers.first().label = QStringLiteral("Second");
        const SimulatedNode tx(sending);
        const SimulatedNode rx(receiving);
        SdpWindow w;
        w.report(tx, QStringLiteral("Cam"));
        w.report(rx, QStringLiteral("Mon"));
        QVERIFY(Window::choose(w.tx, entry(QStringLiteral("Cam"), tx, QStringLiteral("Second"))));
        QVERIFY(Window::choose(w.rx, entry(QStringLiteral("Mon"), rx, QStringLiteral("Second"))));
        w.press(QStringLiteral("Connect (Tx->Rx)"));
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
        const auto patches = rx.requests(QStringLiteral("PATCH")).mid(3);
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
        QCOMPARE(node.requests(QStringLiteral("PATCH")).size(), 2);

        // Audio and data are looked up at the host that the field names by then.
        SimulatedNode twin;
        node.clearFaults();
        node.clearRequests();
        node.setRequestObserver([&node, &video](const LoggedRequest &request) {
            if (request.path == SimulatedNode::manifestPath(video)) {
                node.setFault(SimulatedNode::collectionPath(QStringLiteral("devices")),
                              Fault::hang());
            }
        });
        w.whenAsked(node, QStringLiteral("/devices"), [&] {
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
            {QStringLiteral("No Sender"), QStringLiteral("No sender found on transmitter node."),
             QMessageBox::Warning});
        row("the sender gives no SDP", showTx, true,
            {QStringLiteral("SDP"), QStringLiteral("Failed to fetch SDP from sender."),
             QMessageBox::Warning});
        row("there is no receiver", showRx, false,
            {QStringLiteral("Info"),
             QStringLiteral("No senders on the receiver node to display SDP from."),
             QMessageBox::Information});
        row("the receiver has nothing staged", showRx, true,
            {QStringLiteral("SDP"), QStringLiteral("Nothing is connected/Failed to fetch SDP."),
             QMessageBox::Warning});
        row("there is no receiver to disconnect", disconnectCommand, false,
            {QStringLiteral("Disconnect"),
             QStringLiteral("No video receiver found on receiver node."), QMessageBox::Warning});
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
        row("lines that end in CR LF, and empty ones", QStringLiteral("v=0\r\ns=A\r\n\n\n\n"));
        row("markup", QStringLiteral("<html><b>s=</b>&amp; <img src='x'>\n"));
        row("text that is not Latin", QStringLiteral("s=カメラ \U0001F3A5\tä\n"));
        row("five megabytes of lines", QStringLiteral("a=fmtp:96 width=1920\r\n").repeated(230000));
        row("two thousand characters without a blank", QString(2000, QLatin1Char('x')));
        // Fast only while the view may wrap anywhere: it breaks such a text at no blank.
        row("half a megabyte without a blank", QString(500000, QLatin1Char('x')));
        row("2,001 characters without a blank, among others",
            QStringLiteral("v=0\n") + QString(2001, QLatin1Char('x')) + QStringLiteral(" a"));
    }

    void showsAndCopiesWhatWasPassed()
    {
        QFETCH(const QString, passed);
        const QString shown = QString(passed).replace(QLatin1String("\r\n"), QLatin1String("\n"));
        SdpDialog dialog(QStringLiteral("%1 <b>&amp;"), passed);
        dialog.open();
        QCOMPARE(dialog.windowTitle(), QStringLiteral("SDP \u2022 %1 <b>&amp;"));
        QCOMPARE(SdpDialog({}, {}).windowTitle(), QStringLiteral("SDP"));
        auto *const view = dialog.findChild<QTextEdit *>();
        QCOMPARE(view->wordWrapMode() == QTextOption::WrapAnywhere,
                 passed.contains(QString(2001, QLatin1Char('x'))));
        QVERIFY(view->toPlainText() == shown);
        QCOMPARE(view->document()->blockCount(), shown.count(QLatin1Char('\n')) + 1);
        // It can be selected, and not be edited.
        QVERIFY(view->textInteractionFlags() & Qt::TextSelectableByMouse);
        QTest::keyClick(view, Qt::Key_X);
        QVERIFY(view->toPlainText() == shown);

        QGuiApplication::clipboard()->setText(QStringLiteral("something else"));
        WindowDriver::press(&dialog, QStringLiteral("Copy SDP"));
        QVERIFY(QGuiApplication::clipboard()->text() == shown);
        QVERIFY(dialog.isVisible());
        WindowDriver::press(&dialog, QStringLiteral("Close"));
        QVERIFY(!dialog.isVisible() && dialog.result() == QDialog::Accepted);
        dialog.open();
        QTest::keyClick(view, Qt::Key_Escape);
        QVERIFY(!dialog.isVisible() && dialog.result() == QDialog::Rejected);
    }
};

NODEPATCH_TEST_MAIN(TestSdpCommands)
#include "tst_sdpcommands.moc"
