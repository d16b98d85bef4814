// How nodes get into the selectors: by discovery, and by hand.

#include "Announcer.h"
#include "Application.h"
#include "Plant.h"
#include "net/Descriptors.h"
#include "nmos/NmosClient.h"
#include "support/IntakeWindow.h"
#include "support/TestMain.h"
#include "widgets/Selector.h"

#include <QElapsedTimer>
#include <QListWidget>

namespace {

QStringList storedDevices()
{
    QSettings store(Identity::organisation(), Identity::application());
    QStringList hosts;
    const int count = store.beginReadArray(QStringLiteral("manualDevices"));
    for (int i = 0; i < count; ++i) {
        store.setArrayIndex(i);
        hosts.append(store.value(QStringLiteral("address")).toString() + QLatin1Char(':')
                     + store.value(QStringLiteral("port")).toString());
    }
    return hosts;
}

} // namespace

class TestIntake final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void findsAnAnnouncedNode();
    void listsAReportedNode();
    void leavesTheOperatorsTextAlone();
    void discoveryReplacesAManualDevice();
    void discoveryOvertakesAProbe();
    void keepsTheChoiceUnderItsNewName_data();
    void keepsTheChoiceUnderItsNewName();
    void addsAndRemovesDevices();
    void removesOneDeviceOfTwo();
    void probesStoredDevicesAfterAWhile();
    void keepsTheSoundPartOfBrokenSettings();
    void aProbeOutlivesItsDevice();
};

void TestIntake::initTestCase()
{
    Application::setIdentity();
    Announcer::silenceAvahi();
    Descriptors::raiseLimit();
}

void TestIntake::init()
{
    settings().clear();
}

void TestIntake::findsAnAnnouncedNode()
{
    const SimulatedNode node(NodeDescription::transmitter(),
                             QHostAddress(QStringLiteral("192.0.2.1")));
    Announcer announcer;
    if (!node.isListening() || !announcer.isRunning()) {
        QSKIP("needs a network namespace of its own (scripts/with-network)");
    }
    const QString name = QStringLiteral("Cam 1 \u00fc");
    IntakeWindow w;
    QVERIFY(announcer.announce({name.toUtf8(), "cam1", {node.address()}, node.port()}));
    QTRY_COMPARE_WITH_TIMEOUT(entries(w.tx),
                              QStringList{entry(name, node, QStringLiteral("Video"))}, 15000);
    QCOMPARE(w.rx->count(), 0);
    QCOMPARE(w.tx->currentText(), QString());
}

void TestIntake::listsAReportedNode()
{
    SimulatedNode node(NodeDescription::wide(QStringLiteral("Wide"), 3, 2));
    IntakeWindow w;
    const QString host = node.host();
    QTest::ignoreMessage(
        QtDebugMsg,
        qPrintable(QStringLiteral("mDNS found NMOS Node: \"B\" \"http://%1/x-nmos/node/v1.3/self\"")
                       .arg(host)));
    w.report(node, QStringLiteral("B"));
    QCOMPARE(
        node.requestLines(),
        (QStringList{QStringLiteral("GET ") + sendersPath,
                     QStringLiteral("GET /x-nmos/node/v1.3/flows/"),
                     QStringLiteral("GET ") + sendersPath, QStringLiteral("GET ") + receiversPath,
                     QStringLiteral("GET ") + receiversPath}));
    w.report(node, QStringLiteral("A"));
    w.report(node, QStringLiteral("B"));
    QCOMPARE(w.tx->count(), 6);
    QCOMPARE(entries(w.rx),
             (QStringList{entry(QStringLiteral("A"), node, QStringLiteral("Input 1")),
                          entry(QStringLiteral("A"), node, QStringLiteral("Input 2")),
                          entry(QStringLiteral("B"), node, QStringLiteral("Input 1")),
                          entry(QStringLiteral("B"), node, QStringLiteral("Input 2"))}));
    const auto sender = w.tx->itemData(5).value<NmosClient::SenderConnection>();
    QCOMPARE(sender.id, node.senderIds().at(2));
    QCOMPARE(sender.host, host);

    // What a node no longer has stays listed; a side that is refused adds nothing.
    node.setCollection(QStringLiteral("receivers"), "[]");
    node.setFault(sendersPath, Fault::status(503));
    w.report(node, QStringLiteral("C"));
    QCOMPARE(w.tx->count() + w.rx->count(), 10);
}

void TestIntake::leavesTheOperatorsTextAlone()
{
    const SimulatedNode node(NodeDescription::wide(QStringLiteral("Wide"), 2, 2));
    IntakeWindow w;
    Window::enter(w.tx, node.host());
    w.report(node, QStringLiteral("A"));
    QCOMPARE(w.tx->currentText(), node.host());
    QCOMPARE(w.rx->currentText(), QString());
    Window::choose(w.rx, w.rx->itemText(1));
    const QString chosen = w.rx->currentText();
    w.report(node, QStringLiteral("0"));
    QCOMPARE(w.rx->currentText(), chosen);
    QCOMPARE(
        Selector::of(w.rx)->currentRecord().value<NmosClient::ReceiverConnection>().displayName,
        chosen);
}

void TestIntake::discoveryReplacesAManualDevice()
{
    SimulatedNode node;
    IntakeWindow w;
    QTest::ignoreMessage(
        QtDebugMsg, qPrintable(QStringLiteral("Probing manual device: \"%1\"").arg(node.host())));
    w.addDevice(QStringLiteral("127.0.0.1"), node.port());
    QCOMPARE(entries(w.tx),
             QStringList{entry(QStringLiteral("127.0.0.1"), node, QStringLiteral("Video"))});
    Window::enter(w.tx, QStringLiteral("192.0.2.99:1"));
    w.report(node, QStringLiteral("Cam"));
    QCOMPARE(entries(w.tx),
             QStringList{entry(QStringLiteral("Cam"), node, QStringLiteral("Video"))});
    QCOMPARE(w.tx->currentText(), QStringLiteral("192.0.2.99:1"));

    // From now on the device is discovery's: removed and added again, it is not probed.
    w.removeDevice(0);
    QCOMPARE(w.tx->count(), 0);
    node.clearRequests();
    w.addDevice(QStringLiteral("127.0.0.1"), node.port());
    QVERIFY(node.requests().isEmpty());
    w.report(node, QStringLiteral("Cam"));
    QCOMPARE(w.tx->count(), 1);
}

void TestIntake::discoveryOvertakesAProbe()
{
    SimulatedNode node(NodeDescription::wide(QStringLiteral("Wide"), 1, 1));
    node.setFault(sendersPath, Fault::hang().times(1));
    const QStringList senders{entry(QStringLiteral("Cam"), node, QStringLiteral("Output 1"))};
    const QStringList receivers{entry(QStringLiteral("Cam"), node, QStringLiteral("Input 1"))};
    IntakeWindow w;
    QTimer poll;
    connect(&poll, &QTimer::timeout, &w.window, [&] {
        if (!node.requests().isEmpty()) {
            poll.stop();
            w.report(node, QStringLiteral("Cam"));
        }
    });
    poll.start(1);
    bool overtaken = false;
    release(&w.window, node, [&] {
        overtaken = entries(w.rx) == receivers;
        return overtaken;
    });
    w.addDevice(QStringLiteral("127.0.0.1"), node.port());
    QVERIFY(overtaken);
    QCOMPARE(entries(w.tx), senders);
    QCOMPARE(entries(w.rx), receivers);
}

void TestIntake::keepsTheChoiceUnderItsNewName_data()
{
    QTest::addColumn<QString>("failing");
    QTest::addColumn<QString>("typed"); // into the transmitter's field, meanwhile
    QTest::addColumn<bool>("keepsTx");
    QTest::addColumn<bool>("keepsRx");
    QTest::newRow("of both") << QString() << QString() << true << true;
    QTest::newRow("of the receiver, when the senders fail")
        << sendersPath << QString() << false << true;
    QTest::newRow("of the transmitter, when the receivers fail")
        << receiversPath << QString() << true << false;
    QTest::newRow("but not in the place of what is typed meanwhile")
        << QString() << QStringLiteral("127.0.0.1:1") << false << true;
}

void TestIntake::keepsTheChoiceUnderItsNewName()
{
    QFETCH(const QString, failing);
    QFETCH(const QString, typed);
    QFETCH(const bool, keepsTx);
    QFETCH(const bool, keepsRx);
    SimulatedNode node(NodeDescription::wide(QStringLiteral("Wide"), 3, 2));
    // Its senders and receivers have the same ids.
    const SimulatedNode twin(NodeDescription::wide(QStringLiteral("Wide"), 3, 2));
    IntakeWindow w;
    w.report(twin, QStringLiteral("A"));
    w.addDevice(QStringLiteral("127.0.0.1"), node.port());
    QVERIFY(
        Window::choose(w.tx, entry(QStringLiteral("127.0.0.1"), node, QStringLiteral("Output 2"))));
    QVERIFY(
        Window::choose(w.rx, entry(QStringLiteral("127.0.0.1"), node, QStringLiteral("Input 2"))));
    if (!failing.isEmpty()) {
        node.setFault(failing, Fault::status(503));
    }
    if (!typed.isEmpty()) {
        node.setFault(sendersPath, Fault::hang().times(1));
        node.clearRequests();
        onceAsked(&w.window, node, sendersPath, [&] {
            Window::enter(w.tx, typed);
            node.clearFaults();
        });
    }
    w.report(node, QStringLiteral("Z"));
    const auto sender = Selector::of(w.tx)->currentRecord().value<NmosClient::SenderConnection>();
    const auto receiver =
        Selector::of(w.rx)->currentRecord().value<NmosClient::ReceiverConnection>();
    const QString output = entry(QStringLiteral("Z"), node, QStringLiteral("Output 2"));
    const QString input = entry(QStringLiteral("Z"), node, QStringLiteral("Input 2"));
    QCOMPARE(w.tx->currentText(), keepsTx ? output : typed);
    QCOMPARE(sender.host + sender.id, keepsTx ? node.host() + node.senderIds().at(1) : QString());
    QCOMPARE(Window::isOn(w.txLight), keepsTx);
    QCOMPARE(w.rx->currentText(), keepsRx ? input : QString());
    QCOMPARE(receiver.host + receiver.id,
             keepsRx ? node.host() + node.receiverIds().at(1) : QString());
    QCOMPARE(Window::isOn(w.rxLight), keepsRx);
}

void TestIntake::addsAndRemovesDevices()
{
    const QString already = QStringLiteral("This device is already in the manual device list.");
    const QString none = QStringLiteral("No manual devices have been added.");
    const QStringList hosts{QStringLiteral("127.0.0.1:1"), QStringLiteral("127.0.0.1:2"),
                            QStringLiteral("LocalHost:1"), QStringLiteral("localhost:1")};
    {
        IntakeWindow w;
        w.press(QStringLiteral("Remove Device"));
        QCOMPARE(
            w.boxes.take(),
            (QList<ShownBox>{{QStringLiteral("Remove Device"), none, QMessageBox::Information}}));
        w.addDevice(QStringLiteral(" 127.0.0.1 "), 1);
        w.addDevice(QStringLiteral("127.0.0.1"), 2);
        w.addDevice(QStringLiteral("LocalHost"), 1);
        w.addDevice(QStringLiteral("localhost"), 1);
        QVERIFY(w.boxes.take().isEmpty());
        w.addDevice(QStringLiteral("127.0.0.1"), 1);
        QCOMPARE(
            w.boxes.take(),
            (QList<ShownBox>{{QStringLiteral("Add Device"), already, QMessageBox::Information}}));
        w.addDevice(QStringLiteral("  "), 1);
        w.device = [](QDialog *dialog) {
            dialog->reject();
        };
        w.press(QStringLiteral("Remove Device"));
        QCOMPARE(storedDevices(), hosts);
    }
    IntakeWindow w;
    QStringList offered;
    w.device = [&offered](QDialog *dialog) {
        const auto *list = dialog->findChild<QListWidget *>();
        for (int i = 0; i < list->count(); ++i) {
            offered.append(list->item(i)->text());
        }
        dialog->accept();
    };
    w.press(QStringLiteral("Remove Device"));
    QCOMPARE(offered, hosts);
    w.removeDevice(1);
    QCOMPARE(storedDevices(), (QStringList{hosts.at(1), hosts.at(3)}));

    QMap<QString, int> port;
    w.device = [&port](QDialog *dialog) {
        const auto *box = dialog->findChild<QSpinBox *>();
        port = {{QStringLiteral("value"), box->value()},
                {QStringLiteral("least"), box->minimum()},
                {QStringLiteral("most"), box->maximum()}};
        dialog->reject();
    };
    w.press(QStringLiteral("Add Device"));
    QCOMPARE(port,
             (QMap<QString, int>{{QStringLiteral("value"), 80},
                                 {QStringLiteral("least"), 1},
                                 {QStringLiteral("most"), 65535}}));
}

void TestIntake::removesOneDeviceOfTwo()
{
    const NodeDescription both = NodeDescription::wide(QStringLiteral("Both"), 1, 1);
    const SimulatedNode gone(both);
    const SimulatedNode kept(both);
    IntakeWindow w;
    w.addDevice(QStringLiteral("127.0.0.1"), gone.port());
    w.addDevice(QStringLiteral("127.0.0.1"), kept.port());
    w.removeDevice(0);
    const QString name = QStringLiteral("127.0.0.1");
    QCOMPARE(entries(w.tx), QStringList{entry(name, kept, QStringLiteral("Output 1"))});
    QCOMPARE(entries(w.rx), QStringList{entry(name, kept, QStringLiteral("Input 1"))});
}

void TestIntake::probesStoredDevicesAfterAWhile()
{
    const SimulatedNode first;
    const SimulatedNode second(NodeDescription::receiver());
    {
        IntakeWindow w;
        w.addDevice(QStringLiteral("127.0.0.1"), first.port());
        w.addDevice(QStringLiteral("127.0.0.1"), second.port());
    }
    QElapsedTimer sinceStart;
    sinceStart.start();
    IntakeWindow w;
    QTRY_COMPARE_WITH_TIMEOUT(w.tx->count(), 1, 10000);
    QVERIFY(sinceStart.elapsed() >= 3700); // a coarse timer may be five percent early
    QTRY_COMPARE(w.rx->count(), 1);
}

void TestIntake::keepsTheSoundPartOfBrokenSettings()
{
    const QMap<QString, QVariant> stored = {{QStringLiteral("2/port"), 90},
                                            {QStringLiteral("3/address"), QStringLiteral("a")},
                                            {QStringLiteral("4/address"), QStringLiteral("b")},
                                            {QStringLiteral("4/port"), QStringLiteral("x")},
                                            {QStringLiteral("5/address"), QStringLiteral("c")},
                                            {QStringLiteral("5/port"), 99999},
                                            {QStringLiteral("10/address"), QStringLiteral("tenth")},
                                            {QStringLiteral("0/address"), QStringLiteral("none")},
                                            {QStringLiteral("x/address"), QStringLiteral("none")},
                                            {QStringLiteral("size"), 2147483647}};
    for (auto it = stored.begin(); it != stored.end(); ++it) {
        store(QStringLiteral("manualDevices/") + it.key(), it.value());
    }
    IntakeWindow w;
    w.addDevice(QStringLiteral("127.0.0.1"), 1);
    QCOMPARE(storedDevices(),
             (QStringList{QStringLiteral("a:80"), QStringLiteral("b:0"), QStringLiteral("c:99999"),
                          QStringLiteral("tenth:80"), QStringLiteral("127.0.0.1:1")}));
}

void TestIntake::aProbeOutlivesItsDevice()
{
    SimulatedNode node;
    const SimulatedNode other(NodeDescription::wide(QStringLiteral("Other"), 1, 0));
    node.setFault(sendersPath, Fault::hang());
    IntakeWindow w;
    QTimer poll;
    connect(&poll, &QTimer::timeout, &w.window, [&] {
        if (!node.requests().isEmpty()) {
            poll.stop();
            w.removeDevice(0);
            w.addDevice(QStringLiteral("127.0.0.1"), other.port());
        }
    });
    poll.start(1);
    QTimer::singleShot(0, &w.window,
                       [&] { w.addDevice(QStringLiteral("127.0.0.1"), node.port()); });
    release(&w.window, node, [&w] { return w.tx->count() == 1; });
    QTRY_COMPARE_WITH_TIMEOUT(w.tx->count(), 2, 60000);
    QCOMPARE(storedDevices(), QStringList{other.host()});
}

NODEPATCH_TEST_MAIN(TestIntake)
#include "tst_intake.moc"
