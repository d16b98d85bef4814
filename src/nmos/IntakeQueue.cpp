#include "nmos/IntakeQueue.h"

#include "net/SyncHttp.h"

#include <QTimer>

#include <algorithm>

using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

// Nodes answer within a few milliseconds, patches are applied within a few seconds.
constexpr milliseconds stalledAfter = 300ms;
constexpr milliseconds commandStalledAfter = 10s;

// How soon to look again while a request waits.
constexpr milliseconds busyInterval = 20ms;

// An intake starts only while fewer requests than this wait.
int levelsFor(IntakeQueue::Source source)
{
    return source == IntakeQueue::Source::Discovery ? maximumRequestDepth - 1
                                                    : maximumRequestDepth - 2;
}

} // namespace

IntakeQueue::IntakeQueue(QObject *parent)
    : QObject(parent)
{
}

void IntakeQueue::add(const QString &host, const QString &name, Source source, Intake intake)
{
    const auto same = std::find_if(entries.begin(), entries.end(), [&](const Entry &entry) {
        return entry.source == source && entry.host == host && entry.name == name;
    });
    if (same != entries.end()) {
        same->intake = std::move(intake);
        return;
    }
    auto place = entries.end();
    if (source == Source::Discovery) {
        const auto isStored = [](const Entry &entry) {
            return entry.source == Source::Stored;
        };
        entries.erase(std::remove_if(entries.begin(), entries.end(),
                                     [&](const Entry &entry) {
                                         return isStored(entry) && entry.host == host;
                                     }),
                      entries.end());
        place = std::find_if(entries.begin(), entries.end(), isStored);
    }
    entries.insert(place, {host, name, source, std::move(intake)});
}

void IntakeQueue::run()
{
    if (entries.isEmpty()) {
        return;
    }
    const std::optional<milliseconds> delay = delayUntilStart(entries.constFirst().source);
    if (!delay) {
        return;
    }
    if (*delay > milliseconds::zero()) {
        runLater(*delay);
        return;
    }
    const Intake intake = entries.takeFirst().intake;
    // Before the intake, which may never return.
    runLater(busyInterval);
    {
        const QScopedValueRollback<bool> innermost(innermostIsCommand, false);
        intake();
    }
    // The next one starts from the event loop. A request around this intake may have been answered
    // meanwhile, and its wait ends first. Returning to the event loop also lets finished replies be
    // deleted; Qt scans all pending deletions each time it looks for events, which adds up over
    // thousands.
    QMetaObject::invokeMethod(this, &IntakeQueue::run, Qt::QueuedConnection);
}

// How long the first intake has to wait before it may start, or before it is worth asking again; 0
// when it may start now. Nothing when the program closes: no intake will start any more.
std::optional<milliseconds> IntakeQueue::delayUntilStart(Source source) const
{
    const RequestActivity activity = requestActivity();
    if (activity.closing) {
        return {};
    }
    if (activity.depth == 0) {
        return milliseconds::zero();
    }
    if (activity.depth >= levelsFor(source)) {
        return busyInterval;
    }
    const milliseconds patience = innermostIsCommand ? commandStalledAfter : stalledAfter;
    return std::clamp(patience - activity.waitTime, milliseconds::zero(), busyInterval);
}

void IntakeQueue::runLater(milliseconds delay)
{
    if (timerPending || entries.isEmpty()) {
        return;
    }
    timerPending = true;
    // A timer of its own each time: Qt does not enter the slot of a timer again while it runs, and
    // this one runs as long as its intake.
    QTimer::singleShot(delay, this, [this] {
        timerPending = false;
        run();
    });
}

IntakeQueue::OperatorCommand::OperatorCommand(IntakeQueue *queue)
    : innermost(queue->innermostIsCommand, true)
{
}
