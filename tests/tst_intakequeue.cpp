// Who waits for whom: nodes that discovery reports, that were stored, or that the operator adds,
// and what the operator does, while nodes hang, answer late, or come in crowds.

#include "Plant.h"
#include "discovery/BrowserWindow.h"
#include "support/IntakeWindow.h"
#include "support/LogRecorder.h"

#include <QDeadlineTimer>
#include <qmdnsengine/browser.h>

#include <atomic>

namespace {

NodeDescription oneOfEach(int i)
{
    return NodeDescription::wide(QString::number(i), 1, 1);
}

} // namespace

class TestIntakeQueue final : public ProgramTest {
    Q_OBJECT

private slots:
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
            for (const char *name : {"P", "Q", "Q"}) {
                w.report(prompt, QLatin1String(name));
            }
        });
        w.report(late, "L"_s);
        QTRY_COMPARE(w.rx->count(), 3);
        QCOMPARE(answered.load(), 5);
        QCOMPARE(prompt.requests().size(), 10);
    }

    void noNodeWaitsBehindASilentOne()
    {
        Plant plant;
        plant.addMany(25, oneOfEach);
        QList<ManualDevice> stored;
        for (int i = 0; i < 5; ++i) {
            stored.append({plant.at(i).address().toString(), plant.at(i).port()});
        }
        storeDevices(stored);
        for (const int hanging : {0, 2, 6}) {
            plant.at(hanging).setFault(sendersPath, Fault::hang());
        }
        QElapsedTimer sinceStart;
        sinceStart.start();
        IntakeWindow w;
        const auto isAsked = [&plant](int i) {
            return [&plant, i] {
                return !plant.at(i).requests().isEmpty();
            };
        };
        QDeadlineTimer quiet;
        // Two stored devices hang: one is asked beside the first, and the others wait.
        const LogRecorder log;
        bool isInTime = false;
        QTimer::singleShot(4800, &w.window, [&isInTime] {
            isInTime = !LogRecorder::lines().filter("Probing"_s).isEmpty();
        });
        w.when(isAsked(2), [&] {
            QVERIFY(sinceStart.elapsed() >= 3700); // a coarse timer may be five percent early
            quiet.setRemainingTime(600);
        });
        w.when([&quiet] { return quiet.hasExpired(); },
               [&] {
                   QCOMPARE(w.tx->count(), 1);
                   // What has not been asked is not asked once it is removed. A probe outlives its
                   // device.
                   w.removeDevice(3);
                   w.removeDevice(0);
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
        QVERIFY(plant.at(3).requests().isEmpty() && isInTime);
    }

    // Of three nodes that are reported while a command waits, one hangs.
    void holdsUpNoCommand_data()
    {
        columns<QString, bool>("command", "isInBox");
        QTest::newRow("a check") << QString() << false;
        QTest::newRow("a patch") << connectCommand << false;
        QTest::newRow("a patch behind a box") << connectCommand << true;
        QTest::newRow("a device that is added") << addCommand << false;
    }

    void holdsUpNoCommand()
    {
        QFETCH(const QString, command);
        QFETCH(const bool, isInBox);
        const bool isPatch = command == connectCommand;
        const SimulatedNode tx;
        SimulatedNode rx(NodeDescription::receiver());
        Plant plant;
        plant.addMany(3, oneOfEach);
        plant.at(0).setFault("*"_s, Fault::hang());
        const QString asked = isPatch
            ? SimulatedNode::receiverStagedPath(rx.receiverIds(Essence::Video).value(0))
            : receiversPath;
        IntakeWindow w;
        Window::enter(w.tx, tx.host());
        Window::enter(w.rx, isPatch ? rx.host() : QString());
        rx.setFault(asked, Fault::hang());
        rx.clearRequests();
        QElapsedTimer sinceReport;
        w.whenAsked(rx, asked, [&] {
            sinceReport.start();
            for (int i = 0; i < plant.size(); ++i) {
                w.report(plant.at(i), QString::number(i));
            }
        });
        w.when([&w] { return w.rx->count() == 2; },
               [&] {
                   QVERIFY(sinceReport.elapsed() < 4000); // two stalls of 300 ms
                   if (!isInBox) {
                       rx.clearFaults();
                       return;
                   }
                   w.boxes.keepsOpen = true;
                   w.when(&IntakeWindow::dialog, [&] { w.report(plant.at(0), "again"_s); });
                   w.when([&] { return plant.at(0).requests().size() == 2; },
                          [&] {
                              rx.clearFaults();
                              w.boxes.keepsOpen = false;
                          });
                   w.press(removeCommand); // there is none: a box says so
                   QCOMPARE(w.boxes.take().size(), 1);
               });
        if (command == addCommand) {
            w.addDevice(local, rx.port());
        } else if (isPatch) {
            w.press(command);
        } else {
            Window::enter(w.rx, rx.host());
        }
        QCOMPARE(Window::isOn(w.rxLight), command != addCommand);
        QCOMPARE(rx.requests("PATCH"_s).size(), isPatch ? 3 : 0);
        QCOMPARE(w.rx->count(), command == addCommand ? 3 : 2);
        // The node is asked again, and listed.
        plant.at(0).clearFaults();
        QTRY_COMPARE(w.tx->count(), isInBox ? 4 : 3);
    }

    // An intake that hangs begins while a dialog is open, or as it closes.
    void holdsUpNoDialog_data()
    {
        columns<QString, bool>("command", "isClosing");
        QTest::newRow("OK in Add Device") << addCommand << false;
        QTest::newRow("OK in Remove Device") << removeCommand << false;
        QTest::newRow("reported as it closes") << removeCommand << true;
    }

    void holdsUpNoDialog()
    {
        QFETCH(const QString, command);
        QFETCH(const bool, isClosing);
        const bool isAdding = command == addCommand;
        const SimulatedNode added(oneOfEach(2));
        SimulatedNode hanging(oneOfEach(1));
        hanging.setFault("*"_s, Fault::hang());
        storeDevices({{local, 1}, {local, 2}, {local, 3}});
        QStringList left = storedDevices();
        const auto answer = [&] {
            QDialog *dialog = IntakeWindow::dialog();
            if (isAdding) {
                IntakeWindow::fillIn(dialog, local, added.port());
            } else {
                dialog->findChild<QListWidget *>()->setCurrentRow(1);
                dialog->accept();
            }
        };
        IntakeWindow w;
        w.when(&IntakeWindow::dialog, [&] {
            if (isClosing) {
                answer();
            } else {
                w.whenAsked(hanging, sendersPath, answer);
            }
            w.report(hanging, "H"_s);
        });
        w.press(command);
        QCOMPARE(hanging.requests().isEmpty(), isClosing);
        if (isAdding) {
            left.append(added.host());
        } else {
            left.removeAt(1);
        }
        QCOMPARE(storedDevices(), left);
        QCOMPARE(w.tx->count(), isAdding ? 1 : 0);
        hanging.clearFaults();
        QTRY_COMPARE(w.tx->count(), isAdding ? 2 : 1);
    }

    // The main window closes; the browser window stays.
    void closingEndsAllWaits_data()
    {
        // The path of the transmitter that hangs; empty: a dialog waits.
        columns<QString, QString>("command", "hanging");
        QTest::newRow("Connect") << connectCommand << sendersPath;
        QTest::newRow("the last request of Show SDP")
            << "Transmitter IP: show SDP"_s
            << SimulatedNode::manifestPath(SimulatedNode().senderIds(Essence::Data).value(0));
        QTest::newRow("a device that is added") << addCommand << sendersPath;
        QTest::newRow("a dialog") << addCommand << QString();
        QTest::newRow("a box") << removeCommand << QString();
    }

    void closingEndsAllWaits()
    {
        QFETCH(const QString, command);
        QFETCH(const QString, hanging);
        SimulatedNode tx;
        SimulatedNode rx(NodeDescription::receiver());
        const EventCounter<QDialog> dialogs(qApp, QEvent::Show);
        BrowserWindow *browser = nullptr;
        {
            IntakeWindow w;
            Window::enter(w.tx, tx.host());
            w.press("Browse"_s);
            QTRY_VERIFY(browser = qobject_cast<BrowserWindow *>(QApplication::activeWindow()));
            w.boxes.keepsOpen = true;
            // The command waits inside a check.
            rx.setFault(receiversPath, Fault::hang());
            rx.clearRequests();
            w.whenAsked(rx, receiversPath, [&] { w.press(command); });
            int sent = 0;
            int shown = 0;
            const auto close = [&] {
                shown = dialogs.count;
                sent = tx.requests().size();
                w.window.close();
            };
            if (hanging.isEmpty()) {
                w.when(&IntakeWindow::dialog, close);
            } else {
                tx.setFault(hanging, Fault::hang());
                w.device = [&tx](QDialog *dialog) {
                    IntakeWindow::fillIn(dialog, local, tx.port());
                };
                w.whenAsked(tx, hanging, close);
            }
            tx.clearRequests();
            Window::enter(w.rx, rx.host());
            QVERIFY(sent > 0 || hanging.isEmpty());
            w.report(tx, "T"_s);
            w.press(connectCommand);
            w.press(addCommand);
            QCOMPARE(tx.requests().size(), sent);
            QCOMPARE(dialogs.count, shown);
            const auto *discovery = w.window.findChild<NMOSMdnsBrowser *>();
            QVERIFY(!discovery->findChild<QMdnsEngine::Browser *>());
        }
        delete browser;
        // Another window begins anew.
        rx.clearFaults();
        IntakeWindow w;
        Window::enter(w.rx, rx.host());
        QVERIFY(Window::isOn(w.rxLight));
    }
};

NODEPATCH_TEST_MAIN(TestIntakeQueue)
#include "tst_intakequeue.moc"
