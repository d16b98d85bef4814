// The two "Show SDP…" commands against real nodes.

#include "support/IntakeWindow.h"
#include "support/ProgramTest.h"
#include "support/TestMain.h"

namespace {

const QString showTx = QStringLiteral("Transmitter IP: show SDP");
const QString showRx = QStringLiteral("Receiver IP: show SDP");

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
    void showsWhatTheDeviceOffers_data();
    void showsWhatTheDeviceOffers();
    void activatesASenderOnce();
    void showsWhatIsStaged();
    void followsTheChosenDevice();
    void leavesOutWhatFails();
    void tellsWhatIsMissing_data();
    void tellsWhatIsMissing();
};

void TestSdpCommands::showsWhatTheDeviceOffers_data()
{
    QTest::addColumn<int>("count");
    QTest::newRow("the device sends video") << 1;
    QTest::newRow("the device sends video and audio") << 2;
    QTest::newRow("the device sends video, audio and data") << 3;
}

void TestSdpCommands::showsWhatTheDeviceOffers()
{
    QFETCH(const int, count);
    NodeDescription description = NodeDescription::transmitter();
    description.devices[0].senders.resize(count);
    const SimulatedNode node(description);
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

void TestSdpCommands::activatesASenderOnce()
{
    SimulatedNode node;
    const QString video = node.senderIds(Essence::Video).value(0);
    node.setFault(SimulatedNode::manifestPath(video), Fault::untilActivated());
    SdpWindow w;
    Window::enter(w.tx, node.host());
    w.press(showTx);
    QCOMPARE(SdpWindow::copied().count(QLatin1String("v=0")), 3);
    const auto patches = node.requests(QStringLiteral("PATCH"));
    QCOMPARE(patches.size(), 1);
    QCOMPARE(patches.at(0).path, SimulatedNode::senderStagedPath(video));
}

void TestSdpCommands::showsWhatIsStaged()
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

void TestSdpCommands::followsTheChosenDevice()
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
    w.press(QStringLiteral("Disconnect Rx"));
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

void TestSdpCommands::leavesOutWhatFails()
{
    SimulatedNode node;
    const QString audio = node.senderIds(Essence::Audio).value(0);
    node.setFault(SimulatedNode::manifestPath(audio), Fault::status(404));
    node.setFault(SimulatedNode::senderStagedPath(audio), Fault::status(423));
    SdpWindow w;
    Window::enter(w.tx, node.host());
    w.press(showTx);
    QCOMPARE(SdpWindow::copied(),
             block(node.manifest(node.senderIds(Essence::Video).value(0)))
                 + block(node.manifest(node.senderIds(Essence::Data).value(0))));
}

void TestSdpCommands::tellsWhatIsMissing_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<bool>("isNode");
    QTest::addColumn<ShownBox>("box");
    QTest::newRow("there is no transmitter")
        << showTx << false
        << ShownBox{QStringLiteral("No Sender"),
                    QStringLiteral("No sender found on transmitter node."), QMessageBox::Warning};
    QTest::newRow("the sender gives no SDP")
        << showTx << true
        << ShownBox{QStringLiteral("SDP"), QStringLiteral("Failed to fetch SDP from sender."),
                    QMessageBox::Warning};
    QTest::newRow("there is no receiver")
        << showRx << false
        << ShownBox{QStringLiteral("Info"),
                    QStringLiteral("No senders on the receiver node to display SDP from."),
                    QMessageBox::Information};
    QTest::newRow("the receiver has nothing staged")
        << showRx << true
        << ShownBox{QStringLiteral("SDP"),
                    QStringLiteral("Nothing is connected/Failed to fetch SDP."),
                    QMessageBox::Warning};
}

void TestSdpCommands::tellsWhatIsMissing()
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

NODEPATCH_TEST_MAIN(TestSdpCommands)
#include "tst_sdpcommands.moc"
