// Who waits for whom: nodes that discovery reports, that were stored, or that the operator adds,
// and what the operator does, while nodes hang, answer late, or come in crowds.

#include "Application.h"
#include "Plant.h"
#include "net/Descriptors.h"
#include "support/IntakeWindow.h"
#include "support/TestMain.h"

#include <QDeadlineTimer>

#include <atomic>

namespace {

const QString connectCommand = QStringLiteral("Connect (Tx->Rx)");
const QString local = QStringLiteral("127.0.0.1");

void storeDevices(const QStringList &hosts)
{
    for (int i = 0; i < hosts.size(); ++i) {
        const QString group = QStringLiteral("manualDevices/%1/").arg(i + 1);
        store(group + QStringLiteral("address"), hosts.at(i).section(QLatin1Char(':'), 0, 0));
        store(group + QStringLiteral("port"), hosts.at(i).section(QLatin1Char(':'), 1));
    }
    store(QStringLiteral("manualDevices/size"), hosts.size());
}

NodeDescription oneOfEach(int i)
{
    return NodeDescription::wide(QString::number(i), 1, 1);
}

} // namespace

class TestIntakeQueue final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        Application::setIdentity();
        Descriptors::raiseLimit();
    }

    void init()
    {
        settings().clear();
    }

    void asksNodesOneAfterAnother()
    {
        const SimulatedNode late(oneOfEach(1));
        SimulatedNode prompt(oneOfEach(2));
        std::atomic_int answered{-1};
        prompt.setRequestObserver([&](const LoggedRequest &) {
            int none = -1;
            answered.compare_exchange_strong(none, late.requests().size());
        });
        IntakeWindow w;
        // Comes in while the other one is asked. Each name of one host has a place of its own.
        QTimer::singleShot(0, &w.window, [&] {
            for (const char *name : {"P", "Q", "R", "Q"}) {
                w.report(prompt, QLatin1String(name));
            }
        });
        w.report(late, QStringLiteral("L"));
        QTRY_COMPARE(w.rx->count(), 4);
        QCOMPARE(answered.load(), 5);
        const QString label = QStringLiteral("Output 1");
        QCOMPARE(entries(w.tx),
                 (QStringList{entry(QStringLiteral("L"), late, label),
                              entry(QStringLiteral("P"), prompt, label),
                              entry(QStringLiteral("Q"), prompt, label),
                              entry(QStringLiteral("R"), prompt, label)}));
        QCOMPARE(prompt.requests().size(), 15);
    }

    void noNodeWaitsBehindASilentOne()
    {
        Plant plant;
        plant.addMany(25, oneOfEach);
        QStringList stored;
        for (int i = 0; i < 5; ++i) {
            stored.append(plant.at(i).host());
        }
        storeDevices(stored);
        for (const int hanging : {0, 2, 6}) {
            plant.at(hanging).setFault(sendersPath, Fault::hang());
        }
        IntakeWindow w;
        const auto isAsked = [&plant](int i) {
            return [&plant, i] {
                return !plant.at(i).requests().isEmpty();
            };
        };
        QDeadlineTimer quiet;
        // Two stored devices hang: one is asked beside the first, and the others wait.
        w.when(isAsked(2), [&] {
            QCOMPARE(w.tx->count(), 1);
            // Has not been asked: it is removed, and not asked then.
            w.removeDevice(3);
            for (int i = 5; i < 24; ++i) {
                w.report(plant.at(i), QString::number(i));
            }
        });
        w.when(isAsked(6), [&] {
            QCOMPARE(w.tx->count(), 2);
            quiet.setRemainingTime(600);
        });
        w.when([&quiet] { return quiet.hasExpired(); },
               [&] {
                   QCOMPARE(w.tx->count(), 2);
                   QVERIFY(plant.at(4).requests().isEmpty());
                   // The last level is the operator's: for a check, and for a device that they add.
                   Window::enter(w.rx, plant.at(24).host());
                   QVERIFY(Window::isOn(w.rxLight));
                   w.addDevice(plant.at(24).address().toString(), plant.at(24).port());
                   QCOMPARE(w.tx->count(), 3);
                   plant.at(6).clearFaults();
               });
        w.when([&w] { return w.tx->count() == 21; },
               [&] {
                   QVERIFY(plant.at(4).requests().isEmpty());
                   plant.at(0).clearFaults();
                   plant.at(2).clearFaults();
               });
        QTRY_COMPARE_WITH_TIMEOUT(w.rx->count(), 24, 90000);
        QVERIFY(plant.at(3).requests().isEmpty());
    }

    // An intake that hangs begins inside the wait of a command.
    void holdsUpNoCommand_data()
    {
        QTest::addColumn<bool>("isCheck");
        QTest::addColumn<bool>("isInBox");
        QTest::newRow("a check") << true << false;
        QTest::newRow("a patch") << false << false;
        QTest::newRow("a patch behind a box") << false << true;
    }

    void holdsUpNoCommand()
    {
        QFETCH(const bool, isCheck);
        QFETCH(const bool, isInBox);
        const SimulatedNode tx;
        SimulatedNode rx(NodeDescription::receiver());
        SimulatedNode hanging(oneOfEach(1));
        hanging.setFault(QStringLiteral("*"), Fault::hang());
        const QString asked = isCheck
            ? receiversPath
            : SimulatedNode::receiverStagedPath(rx.receiverIds(Essence::Video).value(0));
        IntakeWindow w;
        Window::enter(w.tx, tx.host());
        Window::enter(w.rx, isCheck ? QString() : rx.host());
        rx.setFault(asked, Fault::hang());
        rx.clearRequests();
        w.whenAsked(rx, asked, [&] {
            w.boxes.keepsOpen = isInBox;
            if (isInBox) {
                w.press(QStringLiteral("Remove Device")); // there is none: a box says so
                QCOMPARE(w.boxes.take().size(), 1);
            }
        });
        w.when([&] { return !isInBox || IntakeWindow::dialog(); },
               [&] { w.report(hanging, QStringLiteral("H")); });
        w.whenAsked(hanging, sendersPath, [&] {
            rx.clearFaults();
            w.boxes.keepsOpen = false;
        });
        if (isCheck) {
            Window::enter(w.rx, rx.host());
            QVERIFY(Window::isOn(w.rxLight));
        } else {
            w.press(connectCommand);
            QCOMPARE(rx.requests(QStringLiteral("PATCH")).size(), 3);
        }
        QCOMPARE(w.tx->count(), 0);
        // The node is asked again, and listed.
        hanging.clearFaults();
        QTRY_COMPARE(w.tx->count(), 1);
    }

    // An intake that hangs begins while a dialog is open, or as it closes.
    void holdsUpNoDialog_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<bool>("isClosing");
        QTest::newRow("OK in Add Device") << QStringLiteral("Add Device") << false;
        QTest::newRow("OK in Remove Device") << QStringLiteral("Remove Device") << false;
        QTest::newRow("reported as it closes") << QStringLiteral("Remove Device") << true;
    }

    void holdsUpNoDialog()
    {
        QFETCH(const QString, command);
        QFETCH(const bool, isClosing);
        const SimulatedNode added(oneOfEach(2));
        SimulatedNode hanging(oneOfEach(1));
        hanging.setFault(QStringLiteral("*"), Fault::hang());
        QStringList hosts{QStringLiteral("127.0.0.1:1"), QStringLiteral("127.0.0.1:2"),
                          QStringLiteral("127.0.0.1:3")};
        storeDevices(hosts);
        const bool isAdding = command == QLatin1String("Add Device");
        const auto answer = [&] {
            QDialog *dialog = IntakeWindow::dialog();
            if (isAdding) {
                IntakeWindow::fillIn(dialog, QStringLiteral("127.0.0.1"), added.port());
            } else {
                dialog->findChild<QListWidget *>()->setCurrentRow(1);
                dialog->accept();
            }
        };
        IntakeWindow w;
        w.when([] { return IntakeWindow::dialog(); },
               [&] {
                   if (isClosing) {
                       answer();
                   }
                   w.report(hanging, QStringLiteral("H"));
               });
        if (!isClosing) {
            w.whenAsked(hanging, sendersPath, answer);
        }
        w.press(command);
        if (isAdding) {
            hosts.append(added.host());
        } else {
            hosts.removeAt(1);
        }
        QCOMPARE(storedDevices(), hosts);
        QCOMPARE(w.tx->count(), isAdding ? 1 : 0);
        hanging.clearFaults();
        QTRY_COMPARE(w.tx->count(), isAdding ? 2 : 1);
    }

    void asksNodesBesideACommandThatHangs_data()
    {
        QTest::addColumn<bool>("isPatch");
        QTest::newRow("a patch") << true;
        QTest::newRow("an added device") << false;
    }

    void asksNodesBesideACommandThatHangs()
    {
        QFETCH(const bool, isPatch);
        const SimulatedNode tx;
        SimulatedNode rx(NodeDescription::receiver());
        Plant plant;
        plant.addMany(3, oneOfEach);
        plant.at(0).setFault(sendersPath, Fault::hang());
        IntakeWindow w;
        Window::enter(w.tx, tx.host());
        Window::enter(w.rx, rx.host());
        const QString asked = isPatch
            ? SimulatedNode::receiverStagedPath(rx.receiverIds(Essence::Video).value(0))
            : sendersPath;
        rx.setFault(asked, Fault::hang());
        QElapsedTimer sinceReport;
        w.whenAsked(rx, asked, [&] {
            sinceReport.start();
            for (int i = 0; i < plant.size(); ++i) {
                w.report(plant.at(i), QString::number(i));
            }
        });
        w.when([&w] { return w.tx->count() == 2; },
               [&] {
                   // Two stalls of 300 ms.
                   QVERIFY(sinceReport.elapsed() < 4000);
                   rx.clearFaults();
                   plant.at(0).clearFaults();
               });
        if (isPatch) {
            w.press(connectCommand);
        } else {
            w.addDevice(QStringLiteral("127.0.0.1"), rx.port());
        }
        QTRY_COMPARE(w.tx->count(), 3);
    }
};

NODEPATCH_TEST_MAIN(TestIntakeQueue)
#include "tst_intakequeue.moc"
