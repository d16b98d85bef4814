// When a node is asked that discovery reports, that was stored, or that the operator adds: while
// others hang, answer late, or come in crowds.

#include "Application.h"
#include "Plant.h"
#include "net/Descriptors.h"
#include "support/IntakeWindow.h"
#include "support/TestMain.h"

#include <atomic>

namespace {

QString sendersOf(const QString &name, const SimulatedNode &node)
{
    return entry(name, node, QStringLiteral("Output 1"));
}

} // namespace

class TestIntakeQueue final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void asksNodesOneAfterAnother();
    void noNodeWaitsBehindASilentOne();
    void listsEveryNodeWhileSomeMisbehave();
    void patchesAtOnceAmidReports();
    void holdsUpNoCommand();
    void goesOnBesideACommandThatHangs();
};

void TestIntakeQueue::initTestCase()
{
    Application::setIdentity();
    Descriptors::raiseLimit();
}

void TestIntakeQueue::init()
{
    settings().clear();
}

void TestIntakeQueue::asksNodesOneAfterAnother()
{
    SimulatedNode late(NodeDescription::wide(QStringLiteral("Late"), 1, 1));
    SimulatedNode prompt(NodeDescription::wide(QStringLiteral("Prompt"), 1, 1));
    late.setResponseDelay(40);
    std::atomic_int answered{-1};
    prompt.setRequestObserver([&](const LoggedRequest &) {
        int none = -1;
        answered.compare_exchange_strong(none, late.requests().size());
    });
    IntakeWindow w;
    // The second one comes in while the first one is asked.
    QTimer::singleShot(1, &w.window, [&] { w.report(prompt, QStringLiteral("P")); });
    w.report(late, QStringLiteral("L"));
    QTRY_COMPARE(w.rx->count(), 2);
    QCOMPARE(answered.load(), 5);

    // Each name of one host has a place of its own.
    QTimer::singleShot(1, &w.window, [&] {
        w.report(prompt, QStringLiteral("Q"));
        w.report(prompt, QStringLiteral("R"));
    });
    w.report(late, QStringLiteral("L"));
    QTRY_COMPARE(
        entries(w.tx),
        (QStringList{sendersOf(QStringLiteral("L"), late), sendersOf(QStringLiteral("P"), prompt),
                     sendersOf(QStringLiteral("Q"), prompt),
                     sendersOf(QStringLiteral("R"), prompt)}));
}

void TestIntakeQueue::noNodeWaitsBehindASilentOne()
{
    Plant plant;
    plant.addMany(25, [](int i) { return NodeDescription::wide(QString::number(i), 1, 1); });
    SimulatedNode &hangingStored = plant.at(0);
    SimulatedNode &secondHangingStored = plant.at(2);
    SimulatedNode &hangingReported = plant.at(6);
    for (SimulatedNode *node : {&hangingStored, &secondHangingStored, &hangingReported}) {
        node->setFault(sendersPath, Fault::hang());
    }
    const auto releaseAll = [&] {
        for (int i = 0; i < plant.size(); ++i) {
            plant.at(i).clearFaults();
        }
    };
    QSettings stored(Identity::organisation(), Identity::application());
    stored.beginWriteArray(QStringLiteral("manualDevices"));
    for (int i = 0; i < 5; ++i) {
        stored.setArrayIndex(i);
        stored.setValue(QStringLiteral("address"), plant.at(i).address().toString());
        stored.setValue(QStringLiteral("port"), plant.at(i).port());
    }
    stored.endArray();
    stored.sync();

    IntakeWindow w;
    // What follows runs inside the waits of the nodes that hang: it must let go of them in the end,
    // whatever it finds.
    QStringList found;
    const auto expect = [&found](bool condition, const char *what) {
        if (!condition) {
            found.append(QLatin1String(what));
        }
    };
    int step = 0;
    int patience = 0;
    QTimer poll;
    connect(&poll, &QTimer::timeout, &w.window, [&] {
        const bool late = ++patience > 2000;
        if (step == 0 && (!secondHangingStored.requests().isEmpty() || late)) {
            // Two stored devices hang: one was asked beside the first, and the others wait.
            step = 1;
            patience = 0;
            expect(w.tx->count() == 1, "a stored device waits behind one that hangs");
            expect(!late, "no second stored device is asked");
            // Device 3 has not been asked: it is removed, and not asked then.
            w.removeDevice(3);
            for (int i = 5; i < 24; ++i) {
                w.report(plant.at(i), QString::number(i));
            }
        } else if (step == 1 && (!hangingReported.requests().isEmpty() || late)) {
            step = 2;
            patience = 0;
            expect(!late, "reported nodes wait behind stored devices that hang");
            expect(w.tx->count() == 2, "reported nodes are not asked in order");
            expect(plant.at(4).requests().isEmpty(), "a stored device took a third level");
        } else if (step == 2 && (patience > 60 || late)) {
            step = 3;
            patience = 0;
            expect(w.tx->count() == 2, "the operator has no level left");
            // The last level is the operator's: for a check, and for a device that they add.
            Window::enter(w.rx, plant.at(24).host());
            expect(Window::isOn(w.rxLight), "a check of the operator is refused");
            w.rx->clearEditText();
            w.addDevice(plant.at(24).address().toString(), plant.at(24).port());
            expect(w.tx->count() == 3, "an added device is not asked at once");
            hangingReported.clearFaults();
        } else if (step == 3 && (w.tx->count() == 21 || late)) {
            step = 4;
            poll.stop();
            expect(!late, "reported nodes are not listed while stored devices hang");
            expect(plant.at(4).requests().isEmpty(), "stored devices came before reported nodes");
            releaseAll();
        }
    });
    poll.start(10);
    QTRY_COMPARE_WITH_TIMEOUT(w.tx->count(), 24, 90000);
    releaseAll();
    QCOMPARE(found, QStringList());
    QCOMPARE(step, 4);
    QTRY_COMPARE(w.rx->count(), 24);
    QVERIFY(plant.at(3).requests().isEmpty());
}

void TestIntakeQueue::listsEveryNodeWhileSomeMisbehave()
{
    constexpr int count = 60;
    Plant plant;
    plant.addMany(
        count, [](int i) { return NodeDescription::wide(QStringLiteral("Node %1").arg(i), 1, 1); });
    plant.at(3).setFault(sendersPath, Fault::hang());
    plant.at(7).setFault(sendersPath, Fault::reset());
    plant.at(7).setFault(receiversPath, Fault::status(500));
    for (int i = 10; i < count; i += 5) {
        plant.at(i).setResponseDelay(5);
    }
    IntakeWindow w;
    // All at once: most come in while an intake waits.
    for (int i = 0; i < count; ++i) {
        QTimer::singleShot(0, &w.window,
                           [&w, &plant, i] { w.report(plant.at(i), QString::number(i)); });
    }
    bool listed = false;
    release(&w.window, plant.at(3), [&] {
        listed = w.tx->count() == count - 2 && w.rx->count() == count - 2;
        return listed;
    });
    QTRY_COMPARE_WITH_TIMEOUT(w.rx->count(), count - 1, 60000);
    QVERIFY(listed);
}

void TestIntakeQueue::patchesAtOnceAmidReports()
{
    const SimulatedNode tx;
    const SimulatedNode rx(NodeDescription::receiver());
    Plant plant;
    plant.addMany(20, [](int i) { return NodeDescription::wide(QString::number(i), 4, 4); });
    plant.at(0).setFault(sendersPath, Fault::hang());
    IntakeWindow w;
    Window::enter(w.tx, tx.host());
    Window::enter(w.rx, rx.host());
    for (int i = 0; i < plant.size(); ++i) {
        QTimer::singleShot(0, &w.window,
                           [&w, &plant, i] { w.report(plant.at(i), QString::number(i)); });
    }
    int listedBefore = -1;
    QTimer poll;
    connect(&poll, &QTimer::timeout, &w.window, [&] {
        if (!plant.at(2).requests().isEmpty()) {
            poll.stop();
            w.press(QStringLiteral("Connect (Tx->Rx)"));
            listedBefore = w.tx->count();
            plant.at(0).clearFaults();
        }
    });
    poll.start(1);
    QTRY_VERIFY(listedBefore >= 0);
    QVERIFY(listedBefore < 4 * (plant.size() - 1));
    const QStringList receiverIds = rx.receiverIds();
    for (const QString &id : receiverIds) {
        QVERIFY(rx.receiverActive(id).value(QLatin1String("master_enable")).toBool());
    }
    QTRY_COMPARE_WITH_TIMEOUT(w.rx->count(), 4 * plant.size(), 30000);
}

void TestIntakeQueue::holdsUpNoCommand()
{
    const SimulatedNode tx;
    SimulatedNode rx(NodeDescription::receiver());
    SimulatedNode hanging(NodeDescription::wide(QStringLiteral("Hanging"), 1, 1));
    // Longer than what is a stall for an intake.
    rx.setFault(SimulatedNode::receiverStagedPath(rx.receiverIds(Essence::Video).value(0)),
                Fault::delay(1200));
    hanging.setFault(QStringLiteral("*"), Fault::hang());
    IntakeWindow w;
    Window::enter(w.tx, tx.host());
    Window::enter(w.rx, rx.host());
    bool pressed = true;
    bool reported = false;
    QTimer poll;
    connect(&poll, &QTimer::timeout, &w.window, [&] {
        if (!reported && !rx.requests(QStringLiteral("PATCH")).isEmpty()) {
            reported = true;
            w.report(hanging, QStringLiteral("H"));
        }
    });
    poll.start(1);
    bool asked = false;
    release(&w.window, hanging, [&] {
        asked = asked || (pressed && !hanging.requests().isEmpty());
        return !hanging.requests().isEmpty();
    });
    w.press(QStringLiteral("Connect (Tx->Rx)"));
    pressed = false;
    QVERIFY(reported);
    QVERIFY(!asked);
    QTRY_COMPARE(w.tx->count(), 1);
}

void TestIntakeQueue::goesOnBesideACommandThatHangs()
{
    const SimulatedNode tx;
    SimulatedNode rx(NodeDescription::receiver());
    Plant plant;
    plant.addMany(3, [](int i) { return NodeDescription::wide(QString::number(i), 1, 1); });
    rx.setFault(SimulatedNode::receiverStagedPath(rx.receiverIds(Essence::Video).value(0)),
                Fault::hang());
    plant.at(0).setFault(sendersPath, Fault::hang());
    IntakeWindow w;
    Window::enter(w.tx, tx.host());
    Window::enter(w.rx, rx.host());
    bool reported = false;
    bool listed = false;
    QTimer poll;
    connect(&poll, &QTimer::timeout, &w.window, [&] {
        if (!reported && !rx.requests(QStringLiteral("PATCH")).isEmpty()) {
            reported = true;
            for (int i = 0; i < plant.size(); ++i) {
                w.report(plant.at(i), QString::number(i));
            }
        }
        listed = listed || w.tx->count() == 2;
        if (listed) {
            plant.at(0).clearFaults();
        }
    });
    poll.start(5);
    release(&w.window, rx, [&] { return listed; });
    w.press(QStringLiteral("Connect (Tx->Rx)"));
    QVERIFY(listed);
    QTRY_COMPARE(w.rx->count(), 3);
}

NODEPATCH_TEST_MAIN(TestIntakeQueue)
#include "tst_intakequeue.moc"
