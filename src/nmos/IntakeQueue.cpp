#include "nmos/IntakeQueue.h"

#include "net/NestedWait.h"
#include "net/SyncHttp.h"

#include <QTimer>

#include <algorithm>

using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

// Nodes answer within a few milliseconds.
constexpr milliseconds stalledAfter = 300ms;

// How soon to look again while a request waits.
constexpr milliseconds busyInterval = 20ms;

// An intake starts only while fewer levels than this are in use.
int levelsFor(IntakeQueue::Source source)
{
    return source == IntakeQueue::Source::Discovery ? maximumLevels - 1 : maximumLevels - 2;
}

} // namespace

IntakeQueue::IntakeQueue(QObject *parent)
    : QObject(parent)
{
}

void IntakeQueue::add(const QString &host, const QString &name, Source source, Intake intake)
{
    if (source == Source::Discovery) {
        const auto isReplaced = [&host](const Entry &entry) {
            return entry.source == Source::Stored && entry.host == host;
        };
        entries.erase(std::remove_if(entries.begin(), entries.end(), isReplaced), entries.end());
    }
    const Entry entry{host, name, source, std::move(intake)};
    if (!entries.contains(entry)) {
        append(entry);
    }
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
    const Entry entry = entries.takeFirst();
    // Before the intake, which may never return.
    runLater(busyInterval);
    {
        const IntakeScope scope;
        entry.intake();
        if (scope.isInterrupted()) {
            // In place of one that was queued meanwhile: it knows what it has done so far.
            entries.removeOne(entry);
            append(entry);
        }
    }
    // The next one starts from the event loop. A request around this intake may have been answered
    // meanwhile, and its wait ends first. Returning to the event loop also lets finished replies be
    // deleted; Qt scans all pending deletions each time it looks for events, which adds up over
    // thousands.
    QMetaObject::invokeMethod(this, &IntakeQueue::run, Qt::QueuedConnection);
}

// Puts an entry behind those that come from the same source.
void IntakeQueue::append(const Entry &entry)
{
    const auto isStored = [](const Entry &other) {
        return other.source == Source::Stored;
    };
    const auto firstStored = std::find_if(entries.begin(), entries.end(), isStored);
    entries.insert(entry.source == Source::Discovery ? firstStored : entries.end(), entry);
}

// Time until the first intake may start or should be checked again; none when the program closes:
// no intake will start any more.
std::optional<milliseconds> IntakeQueue::delayUntilStart(Source source) const
{
    const RequestActivity activity = requestActivity();
    if (activity.closing) {
        return {};
    }
    if (NestedWait::isOperatorDue()) {
        return busyInterval;
    }
    if (activity.levels == 0) {
        return milliseconds::zero();
    }
    if (activity.levels >= levelsFor(source)) {
        return busyInterval;
    }
    return std::clamp(stalledAfter - activity.waitTime, milliseconds::zero(), busyInterval);
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
