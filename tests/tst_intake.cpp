// How nodes get into the selectors: by discovery, and by hand.

#include "Announcer.h"
#include "Plant.h"
#include "nmos/NmosClient.h"
#include "support/IntakeWindow.h"
#include "widgets/Selector.h"

#include <csignal>

#include <sys/resource.h>

class TestIntake final : public ProgramTest {
    Q_OBJECT

private slots:
    void findsAnAnnouncedNode()
    {
        const SimulatedNode node(NodeDescription::transmitter(), QHostAddress("192.0.2.1"_s));
        Announcer::silenceAvahi();
        Announcer announcer;
        if (!node.isListening() || !announcer.isRunning()) {
            QSKIP("needs a network namespace of its own (scripts/with-network)");
        }
        const QString name = "Cam 1 \u00fc"_s;
        IntakeWindow w;
        QVERIFY(announcer.announce({name.toUtf8(), "cam1", {node.address()}, node.port()}));
        QTRY_COMPARE_WITH_TIMEOUT(entries(w.tx), QStringList{entry(name, node, "Video"_s)}, 15000);
        QCOMPARE(w.rx->count(), 0);
        QCOMPARE(w.tx->currentText(), QString());
    }

    void listsAReportedNode()
    {
        SimulatedNode node(NodeDescription::wide("Wide"_s, 3, 2));
        IntakeWindow w;
        const QString host = node.host();
        QTest::ignoreMessage(
            QtDebugMsg,
            qPrintable(
                "mDNS found NMOS Node: \"B\" \"http://%1/x-nmos/node/v1.3/self\""_s.arg(host)));
        w.report(node, "B"_s);
        QCOMPARE(node.requestLines(),
                 (QStringList{"GET "_s + sendersPath, "GET /x-nmos/node/v1.3/flows/"_s,
                              "GET "_s + sendersPath, "GET "_s + receiversPath,
                              "GET "_s + receiversPath}));
        w.report(node, "A"_s);
        w.report(node, "B"_s);
        QCOMPARE(w.tx->count(), 6);
        QCOMPARE(entries(w.rx),
                 (QStringList{entry("A"_s, node, "Input 1"_s), entry("A"_s, node, "Input 2"_s),
                              entry("B"_s, node, "Input 1"_s), entry("B"_s, node, "Input 2"_s)}));
        const auto sender = w.tx->itemData(5).value<NmosClient::SenderConnection>();
        QCOMPARE(sender.id, node.senderIds().at(2));
        QCOMPARE(sender.host, host);
        QCOMPARE(QMetaType::type("SenderConnection"), qMetaTypeId<NmosClient::SenderConnection>());
        QCOMPARE(QMetaType::type("ReceiverConnection"),
                 qMetaTypeId<NmosClient::ReceiverConnection>());

        // What a node no longer has stays listed; a side that is refused adds nothing.
        node.setCollection("receivers"_s, "[]");
        node.setFault(sendersPath, Fault::status(503));
        node.clearRequests();
        w.report(node, "C"_s);
        QCOMPARE(node.requestLines(),
                 (QStringList{"GET "_s + sendersPath, "GET "_s + receiversPath}));
        QCOMPARE(w.tx->count() + w.rx->count(), 10);
    }

    void discoveryReplacesAManualDevice()
    {
        SimulatedNode node;
        IntakeWindow w;
        QTest::ignoreMessage(QtDebugMsg,
                             qPrintable("Probing manual device: \"%1\""_s.arg(node.host())));
        w.addDevice(local, node.port());
        QCOMPARE(entries(w.tx), QStringList{entry(local, node, "Video"_s)});
        QCOMPARE(node.requestLines().constFirst(), "GET "_s + sendersPath);
        Window::enter(w.tx, "127.0.0.1:1"_s);
        w.report(node, "Cam"_s);
        QCOMPARE(entries(w.tx), QStringList{entry("Cam"_s, node, "Video"_s)});
        QCOMPARE(w.tx->currentText(), "127.0.0.1:1"_s);
        // Another host whose text begins alike.
        w.addDevice(local, node.port() / 10);
        w.removeDevice(1);
        QCOMPARE(w.tx->count(), 1);

        // From now on the device is discovery's: removed and added again, it is not probed.
        w.removeDevice(0);
        QCOMPARE(w.tx->count(), 0);
        node.clearRequests();
        w.addDevice(local, node.port());
        QVERIFY(node.requests().isEmpty());
        w.report(node, "Cam"_s);
        QCOMPARE(w.tx->count(), 1);
    }

    void discoveryOvertakesAProbe()
    {
        SimulatedNode node(NodeDescription::wide("Wide"_s, 1, 1));
        node.setFault(sendersPath, Fault::hang().times(1));
        const QStringList senders{entry("Cam"_s, node, "Output 1"_s)};
        const QStringList receivers{entry("Cam"_s, node, "Input 1"_s)};
        IntakeWindow w;
        w.whenAsked(node, sendersPath, [&] { w.report(node, "Cam"_s); });
        w.when([&] { return entries(w.rx) == receivers; }, [&node] { node.clearFaults(); });
        w.addDevice(local, node.port());
        QCOMPARE(entries(w.tx), senders);
        QCOMPARE(entries(w.rx), receivers);
    }

    void keepsTheChoiceUnderItsNewName_data()
    {
        // What is typed goes into the transmitter's field, meanwhile. An interruption comes at that
        // request; 0: at none.
        columns<QString, QString, int>("failing", "typed", "interrupted");
        row("of both", ""_s, ""_s, 0);
        row("of the receiver, when the senders fail", sendersPath, ""_s, 0);
        row("of the transmitter, when the receivers fail", receiversPath, ""_s, 0);
        row("but not in the place of what is typed meanwhile", ""_s, "127.0.0.1:1"_s, 0);
        row("when it is interrupted before it has the senders", ""_s, ""_s, 1);
        row("when it is interrupted before it has their flows", ""_s, ""_s, 2);
        row("when it is interrupted while the choice is checked", ""_s, ""_s, 4);
        row("when it is interrupted before it has the receivers", ""_s, ""_s, 5);
    }

    void keepsTheChoiceUnderItsNewName()
    {
        QFETCH(const QString, failing);
        QFETCH(const QString, typed);
        QFETCH(const int, interrupted);
        SimulatedNode node(NodeDescription::wide("Wide"_s, 3, 2));
        // Its senders and receivers have the same ids.
        const SimulatedNode twin(NodeDescription::wide("Wide"_s, 3, 2));
        IntakeWindow w;
        w.report(twin, "A"_s);
        w.addDevice(local, node.port());
        QVERIFY(Window::choose(w.tx, entry(local, node, "Output 2"_s)));
        QVERIFY(Window::choose(w.rx, entry(local, node, "Input 2"_s)));
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
                    node.setFault("*"_s, Fault::hang());
                }
            };
            hangAt(1);
            node.setRequestObserver(
                [&node, hangAt](const LoggedRequest &) { hangAt(node.requests().size() + 1); });
            w.device = {};
            w.when(&IntakeWindow::dialog, [&] { w.report(node, "Z"_s); });
            w.when([&] { return node.requests().size() == interrupted; },
                   [&] { IntakeWindow::dialog()->reject(); });
            w.press(removeCommand);
            QVERIFY(w.tx->currentText().isEmpty() || w.rx->currentText().isEmpty());
            node.clearFaults();
        } else {
            w.report(node, "Z"_s);
        }
        const bool keepsTx = typed.isEmpty() && failing != sendersPath;
        const bool keepsRx = failing != receiversPath;
        QTRY_COMPARE(Window::isOn(w.rxLight), keepsRx);
        QCOMPARE(Window::isOn(w.txLight), keepsTx);
        const QString output = entry("Z"_s, node, "Output 2"_s);
        const QString input = entry("Z"_s, node, "Input 2"_s);
        QCOMPARE(w.tx->currentText(), keepsTx ? output : typed);
        QCOMPARE(Selector::of(w.tx)->currentRecord().isValid(), keepsTx);
        QCOMPARE(w.rx->currentText(), keepsRx ? input : QString());
        QCOMPARE(Selector::of(w.rx)->currentRecord().isValid(), keepsRx);
    }

    void addsAndRemovesDevices()
    {
        QStringList hosts{"127.0.0.1:1"_s, "127.0.0.1:2"_s, "LocalHost:1"_s, "localhost:1"_s};
        {
            IntakeWindow w;
            w.press(removeCommand);
            QCOMPARE(
                w.boxes.take(),
                QStringList{"Information: Remove Device: No manual devices have been added."_s});
            w.addDevice(" 127.0.0.1 "_s, 1);
            w.addDevice(local, 2);
            w.addDevice("LocalHost"_s, 1);
            w.addDevice("localhost"_s, 1);
            QVERIFY(w.boxes.take().isEmpty());
            w.addDevice(local, 1);
            QCOMPARE(w.boxes.take(),
                     QStringList{"Information: Add Device: This device is already in the manual "
                                 "device list."_s});
            w.addDevice("  "_s, 1);
            for (const bool accepts : {false, true}) {
                w.device = [accepts](QDialog *dialog) {
                    // A line whose mark is taken away is not removed.
                    auto *list = dialog->findChild<QListWidget *>();
                    QTest::mouseClick(list->viewport(), Qt::LeftButton,
                                      accepts ? Qt::ControlModifier : Qt::NoModifier,
                                      list->visualItemRect(list->currentItem()).center());
                    dialog->done(accepts ? QDialog::Accepted : QDialog::Rejected);
                };
                w.press(removeCommand);
            }
            QCOMPARE(storedDevices(), hosts);
            QCOMPARE(settings().value("manualDevices/2/port"_s), QVariant(2));
            QCOMPARE(settings().value("manualDevices/size"_s), QVariant(4));
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
        w.press(removeCommand);
        QCOMPARE(offered, hosts);
        QCOMPARE(storedDevices(), hosts.mid(1));

        QList<int> port;
        w.device = [&port](QDialog *dialog) {
            const auto *box = dialog->findChild<QSpinBox *>();
            port = {box->value(), box->minimum(), box->maximum()};
            dialog->findChild<QLineEdit *>()->setText(local);
            IntakeWindow::click(dialog, QDialogButtonBox::Cancel);
        };
        w.press(addCommand);
        QCOMPARE(storedDevices(), hosts.mid(1));
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
        QVERIFY(
            shown.at(0).startsWith("Warning: Add Device: This device will not be remembered"_s));
        QVERIFY(shown.at(1).startsWith("Warning: Remove Device: This device will be back"_s));
        QVERIFY(shown.at(2) == shown.at(1));
        // The next write that succeeds says nothing.
        w.addDevice(local, node.port());
        QVERIFY(w.boxes.take().isEmpty());
        QCOMPARE(w.tx->count(), 1);
    }

    void keepsTheSoundPartOfBrokenSettings()
    {
        // A size that is too large, broken entries, and a second spelling of a number.
        const QStringList stored = "01/address=first 2/port=90 3/address=a 4/address=b 4/port=x "
                                   "5/address=c 5/port=99999 10/address=tenth 0/address=none "
                                   "x/address=none size=2147483647"_s.split(QLatin1Char(' '));
        for (const QString &entry : stored) {
            store("manualDevices/"_s + entry.section(QLatin1Char('='), 0, 0),
                  entry.section(QLatin1Char('='), 1));
        }
        IntakeWindow w;
        w.addDevice(local, 1);
        QCOMPARE(storedDevices().join(QLatin1Char(' ')), "a:80 b:0 c:99999 tenth:80 127.0.0.1:1"_s);
    }
};

NODEPATCH_TEST_MAIN(TestIntake)
#include "tst_intake.moc"
