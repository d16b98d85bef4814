#include "nmos/IntakeQueue.h"

#include "nmos/SyncHttp.h"

#include <QTimer>

#include <algorithm>

namespace {

// Nodes answer within a few milliseconds, patches are applied within a few seconds.
constexpr int stalledAfter = 300;
constexpr int stalledCommandAfter = 10000;

// How soon to look again while more than one request waits.
constexpr int busyInterval = 20;

} // namespace

IntakeQueue::IntakeQueue(QObject *parent)
    : QObject(parent)
{
}

void IntakeQueue::add(const QString &host, Source source, Intake intake)
{
    const auto kept = std::find_if(entries.begin(), entries.end(),
                                   [&host](const Entry &entry) { return entry.host == host; });
    if (kept != entries.end() && kept->source == source) {
        kept->intake = std::move(intake);
        return;
    }
    if (kept != entries.end()) {
        entries.erase(kept);
    }
    auto place = entries.end();
    if (source == Source::Discovery) {
        place = std::find_if(entries.begin(), entries.end(),
                             [](const Entry &entry) { return entry.source == Source::Manual; });
    }
    entries.insert(place, {host, source, std::move(intake)});
}

void IntakeQueue::run()
{
    if (entries.isEmpty() || delayUntilStart() != 0) {
        arrange();
        return;
    }
    const Intake intake = entries.takeFirst().intake;
    intake();
    // The next one starts from the event loop. When the intake was nested, the request outside may
    // have been answered by now: its wait ends first. When it was not, its replies are deleted
    // first: the toolkit goes through all that still await it whenever it looks for events.
    QMetaObject::invokeMethod(this, &IntakeQueue::run, Qt::QueuedConnection);
}

// Milliseconds until an intake may start; 0: now; negative: never again.
int IntakeQueue::delayUntilStart() const
{
    const RequestActivity activity = requestActivity();
    if (activity.closing) {
        return -1;
    }
    if (activity.depth == 0) {
        return 0;
    }
    if (activity.depth > 1) {
        return busyInterval;
    }
    const qint64 patience = commands > 0 ? stalledCommandAfter : stalledAfter;
    return static_cast<int>(qBound<qint64>(0, patience - activity.waitTime, busyInterval));
}

void IntakeQueue::arrange()
{
    if (entries.isEmpty() || arranged) {
        return;
    }
    const int delay = delayUntilStart();
    if (delay < 0) {
        return;
    }
    arranged = true;
    // A timer of its own each time: the slot of one that is running would not be entered again.
    QTimer::singleShot(delay, this, [this] {
        arranged = false;
        run();
    });
}

IntakeQueue::Command::Command(IntakeQueue *intakes)
    : queue(intakes)
{
    ++queue->commands;
}

IntakeQueue::Command::~Command()
{
    --queue->commands;
}
