// How nodes get into the selectors: by discovery, and by hand.

#include "Announcer.h"
#include "Application.h"
#include "Plant.h"
#include "net/Descriptors.h"
#include "nmos/NmosClient.h"
#include "support/IntakeWindow.h"
#include "support/TestMain.h"
#include "widgets/Selector.h"

#include <csignal>

#include <sys/resource.h>

namespace {

const QString local = QStringLiteral("127.0.0.1");

} // namespace

class TestIntake final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        Application::setIdentity();
        Announcer::silenceAvahi();
        Descriptors::raiseLimit();
    }

    void init()
    {
        settings().clear();
    }

    void findsAnAnnouncedNode()
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

    void listsAReportedNode()
    {
        SimulatedNode node(NodeDescription::wide(QStringLiteral("Wide"), 3, 2));
        IntakeWindow w;
        const QString host = node.host();
        QTest::ignoreMessage(
            QtDebugMsg,
            qPrintable(
                QStringLiteral("mDNS found NMOS Node: \"B\" \"http://%1/x-nmos/node/v1.3/self\"")
                    .arg(host)));
        w.report(node, QStringLiteral("B"));
        QCOMPARE(node.requestLines(),
                 (QStringList{QStringLiteral("GET ") + sendersPath,
                              QStringLiteral("GET /x-nmos/node/v1.3/flows/"),
                              QStringLiteral("GET ") + sendersPath,
                              QStringLiteral("GET ") + receiversPath,
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

    void discoveryReplacesAManualDevice()
    {
        SimulatedNode node;
        IntakeWindow w;
        QTest::ignoreMessage(
            QtDebugMsg,
            qPrintable(QStringLiteral("Probing manual device: \"%1\"").arg(node.host())));
        w.addDevice(local, node.port());
        QCOMPARE(entries(w.tx), QStringList{entry(local, node, QStringLiteral("Video"))});
        Window::enter(w.tx, QStringLiteral("127.0.0.1:1"));
        w.report(node, QStringLiteral("Cam"));
        QCOMPARE(entries(w.tx),
                 QStringList{entry(QStringLiteral("Cam"), node, QStringLiteral("Video"))});
        QCOMPARE(w.tx->currentText(), QStringLiteral("127.0.0.1:1"));

        // From now on the device is discovery's: removed and added again, it is not probed.
        w.removeDevice(0);
        QCOMPARE(w.tx->count(), 0);
        node.clearRequests();
        w.addDevice(local, node.port());
        QVERIFY(node.requests().isEmpty());
        w.report(node, QStringLiteral("Cam"));
        QCOMPARE(w.tx->count(), 1);
    }

    void discoveryOvertakesAProbe()
    {
        SimulatedNode node(NodeDescription::wide(QStringLiteral("Wide"), 1, 1));
        node.setFault(sendersPath, Fault::hang().times(1));
        const QStringList senders{entry(QStringLiteral("Cam"), node, QStringLiteral("Output 1"))};
        const QStringList receivers{entry(QStringLiteral("Cam"), node, QStringLiteral("Input 1"))};
        IntakeWindow w;
        w.whenAsked(node, sendersPath, [&] { w.report(node, QStringLiteral("Cam")); });
        w.when([&] { return entries(w.rx) == receivers; }, [&node] { node.clearFaults(); });
        w.addDevice(local, node.port());
        QCOMPARE(entries(w.tx), senders);
        QCOMPARE(entries(w.rx), receivers);
    }

    void keepsTheChoiceUnderItsNewName_data()
    {
        QTest::addColumn<QString>("failing");
        QTest::addColumn<QString>("typed"); // into the transmitter's field, meanwhile
        QTest::addColumn<int>("interrupted"); // at which request; 0: at none
        const auto row = [](const char *name, const QString &failing, const QString &typed,
                            int interrupted) {
            QTest::newRow(name) << failing << typed << interrupted;
        };
        row("of both", {}, {}, 0);
        row("of the receiver, when the senders fail", sendersPath, {}, 0);
        row("of the transmitter, when the receivers fail", receiversPath, {}, 0);
        row("but not in the place of what is typed meanwhile", {}, local + QLatin1String(":1"), 0);
        row("when it is interrupted before it has the senders", {}, {}, 1);
        row("when it is interrupted before it has their flows", {}, {}, 2);
        row("when it is interrupted while the choice is checked", {}, {}, 4);
        row("when it is interrupted before it has the receivers", {}, {}, 5);
    }

    void keepsTheChoiceUnderItsNewName()
    {
        QFETCH(const QString, failing);
        QFETCH(const QString, typed);
        QFETCH(const int, interrupted);
        SimulatedNode node(NodeDescription::wide(QStringLiteral("Wide"), 3, 2));
        // Its senders and receivers have the same ids.
        const SimulatedNode twin(NodeDescription::wide(QStringLiteral("Wide"), 3, 2));
        IntakeWindow w;
        w.report(twin, QStringLiteral("A"));
        w.addDevice(local, node.port());
        QVERIFY(Window::choose(w.tx, entry(local, node, QStringLiteral("Output 2"))));
        QVERIFY(Window::choose(w.rx, entry(local, node, QStringLiteral("Input 2"))));
        node.clearRequests();
        if (!failing.isEmpty()) {
            node.setFault(failing, Fault::status(503));
        }
        if (!typed.isEmpty()) {
            node.setFault(sendersPath, Fault::hang().times(1));
            w.whenAsked(node, sendersPath, [&] {
                Window::enter(w.tx, typed);
                node.clearFaults();
            });
        }
        if (interrupted > 0) {
            const auto hangAt = [&node, interrupted](int next) {
                if (next == interrupted) {
                    node.setFault(QStringLiteral("*"), Fault::hang());
                }
            };
            hangAt(1);
            node.setRequestObserver(
                [&](const LoggedRequest &) { hangAt(node.requests().size() + 1); });
            w.device = {};
            w.when(&IntakeWindow::dialog, [&] { w.report(node, QStringLiteral("Z")); });
            w.when([&] { return node.requests().size() == interrupted; },
                   [&] { IntakeWindow::dialog()->reject(); });
            w.press(QStringLiteral("Remove Device"));
            QVERIFY(w.tx->currentText().isEmpty() || w.rx->currentText().isEmpty());
            node.clearFaults();
        } else {
            w.report(node, QStringLiteral("Z"));
        }
        const bool keepsTx = typed.isEmpty() && failing != sendersPath;
        const bool keepsRx = failing != receiversPath;
        QTRY_COMPARE(Window::isOn(w.rxLight), keepsRx);
        QCOMPARE(Window::isOn(w.txLight), keepsTx);
        const auto sender =
            Selector::of(w.tx)->currentRecord().value<NmosClient::SenderConnection>();
        const auto receiver =
            Selector::of(w.rx)->currentRecord().value<NmosClient::ReceiverConnection>();
        const QString output = entry(QStringLiteral("Z"), node, QStringLiteral("Output 2"));
        const QString input = entry(QStringLiteral("Z"), node, QStringLiteral("Input 2"));
        QCOMPARE(w.tx->currentText(), keepsTx ? output : typed);
        QCOMPARE(sender.host + sender.id,
                 keepsTx ? node.host() + node.senderIds().at(1) : QString());
        QCOMPARE(w.rx->currentText(), keepsRx ? input : QString());
        QCOMPARE(receiver.host + receiver.id,
                 keepsRx ? node.host() + node.receiverIds().at(1) : QString());
    }

    void addsAndRemovesDevices()
    {
        const QString already = QStringLiteral("This device is already in the manual device list.");
        const QString none = QStringLiteral("No manual devices have been added.");
        const QString adding = QStringLiteral("Add Device");
        const QString removing = QStringLiteral("Remove Device");
        QStringList hosts{QStringLiteral("127.0.0.1:1"), QStringLiteral("127.0.0.1:2"),
                          QStringLiteral("LocalHost:1"), QStringLiteral("localhost:1")};
        {
            IntakeWindow w;
            w.press(removing);
            QCOMPARE(w.boxes.take(), (QList<ShownBox>{{removing, none, QMessageBox::Information}}));
            w.addDevice(QStringLiteral(" 127.0.0.1 "), 1);
            w.addDevice(local, 2);
            w.addDevice(QStringLiteral("LocalHost"), 1);
            w.addDevice(QStringLiteral("localhost"), 1);
            QVERIFY(w.boxes.take().isEmpty());
            w.addDevice(local, 1);
            QCOMPARE(w.boxes.take(),
                     (QList<ShownBox>{{adding, already, QMessageBox::Information}}));
            w.addDevice(QStringLiteral("  "), 1);
            for (const bool accepts : {false, true}) {
                w.device = [accepts](QDialog *dialog) {
                    // A line whose mark is taken away is not removed.
                    auto *list = dialog->findChild<QListWidget *>();
                    QTest::mouseClick(list->viewport(), Qt::LeftButton,
                                      accepts ? Qt::ControlModifier : Qt::NoModifier,
                                      list->visualItemRect(list->currentItem()).center());
                    dialog->done(accepts ? QDialog::Accepted : QDialog::Rejected);
                };
                w.press(removing);
            }
            QCOMPARE(storedDevices(), hosts);
            w.removeDevice(1);
            hosts.removeAt(1);
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
        w.press(removing);
        QCOMPARE(offered, hosts);
        QCOMPARE(storedDevices(), hosts.mid(1));

        QList<int> port;
        w.device = [&port](QDialog *dialog) {
            const auto *box = dialog->findChild<QSpinBox *>();
            port = {box->value(), box->minimum(), box->maximum()};
            dialog->reject();
        };
        w.press(adding);
        QCOMPARE(port, (QList<int>{80, 1, 65535}));
    }

    void listsAnAddedDeviceAlthoughFourRequestsWait()
    {
        SimulatedNode hanging;
        const SimulatedNode added;
        hanging.setFault(sendersPath, Fault::hang());
        IntakeWindow w;
        for (int i = 1; i < 4; ++i) {
            w.when([&, i] { return hanging.requests().size() == i; },
                   [&, i] { Window::enter(w.tx, hanging.host() + QString(i, QLatin1Char(' '))); });
        }
        w.when([&] { return hanging.requests().size() == 4; },
               [&] {
                   w.addDevice(local, added.port());
                   hanging.clearFaults();
               });
        Window::enter(w.tx, hanging.host());
        QTRY_COMPARE(w.tx->count(), 1);
    }

    void saysThatTheListCannotBeWritten()
    {
        const SimulatedNode node;
        IntakeWindow w;
        w.addDevice(local, 1);
        // No file can grow. It can be read.
        rlimit limit{};
        ::getrlimit(RLIMIT_FSIZE, &limit);
        const rlimit none{0, limit.rlim_max};
        ::signal(SIGXFSZ, SIG_IGN);
        ::setrlimit(RLIMIT_FSIZE, &none);
        w.addDevice(local, node.port());
        w.removeDevice(0);
        w.removeDevice(0);
        ::setrlimit(RLIMIT_FSIZE, &limit);
        const auto shown = w.boxes.take();
        QCOMPARE(shown.size(), 3);
        QVERIFY(shown.at(0).text.startsWith(QLatin1String("This device will not be remembered")));
        QVERIFY(shown.at(1).text.startsWith(QLatin1String("This device will be back")));
        QVERIFY(shown.at(2) == shown.at(1));
        // The next write that succeeds says nothing.
        w.addDevice(local, node.port());
        QVERIFY(w.boxes.take().isEmpty());
        QCOMPARE(w.tx->count(), 1);
    }

    void probesStoredDevicesAfterAWhile()
    {
        const SimulatedNode first;
        const SimulatedNode second(NodeDescription::receiver());
        {
            IntakeWindow w;
            w.addDevice(local, first.port());
            w.addDevice(local, second.port());
        }
        QElapsedTimer sinceStart;
        sinceStart.start();
        IntakeWindow w;
        QTRY_COMPARE_WITH_TIMEOUT(w.tx->count(), 1, 10000);
        QVERIFY(sinceStart.elapsed() >= 3700); // a coarse timer may be five percent early
        QTRY_COMPARE(w.rx->count(), 1);
    }

    void keepsTheSoundPartOfBrokenSettings_data()
    {
        QTest::addColumn<QStringList>("stored");
        QTest::addColumn<QStringList>("kept");
        const auto row = [](const char *name, const char *stored, const char *kept) {
            QTest::newRow(name) << QString::fromLatin1(stored).split(QLatin1Char(' '))
                                << QString::fromLatin1(kept).split(QLatin1Char(' '));
        };
        row("a size that is too large, and broken entries",
            "2/port=90 3/address=a 4/address=b 4/port=x 5/address=c 5/port=99999 10/address=tenth "
            "0/address=none x/address=none size=2147483647",
            "a:80 b:0 c:99999 tenth:80");
        row("a second spelling of a number", "01/address=a 1/address=b 2/address=c size=2",
            "b:80 c:80");
    }

    void keepsTheSoundPartOfBrokenSettings()
    {
        QFETCH(const QStringList, stored);
        QFETCH(QStringList, kept);
        for (const QString &entry : stored) {
            store(QStringLiteral("manualDevices/") + entry.section(QLatin1Char('='), 0, 0),
                  entry.section(QLatin1Char('='), 1));
        }
        IntakeWindow w;
        w.addDevice(local, 1);
        QCOMPARE(storedDevices(), kept << QStringLiteral("127.0.0.1:1"));
    }

    void aProbeOutlivesItsDevice()
    {
        SimulatedNode node;
        const SimulatedNode other(NodeDescription::wide(QStringLiteral("Other"), 1, 0));
        node.setFault(sendersPath, Fault::hang());
        IntakeWindow w;
        w.whenAsked(node, sendersPath, [&] {
            w.removeDevice(0);
            w.addDevice(local, other.port());
        });
        w.when([&w] { return w.tx->count() == 1; }, [&node] { node.clearFaults(); });
        w.addDevice(local, node.port());
        QCOMPARE(w.tx->count(), 2);
        QCOMPARE(storedDevices(), QStringList{other.host()});
    }
};

NODEPATCH_TEST_MAIN(TestIntake)
#include "tst_intake.moc"
