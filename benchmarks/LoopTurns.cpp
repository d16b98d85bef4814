#include "LoopTurns.h"

#include <QAbstractEventDispatcher>

#include <algorithm>
#include <ctime>

namespace {

// The milliseconds of processor time that this thread has used.
double threadTime()
{
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

} // namespace

void LoopTurns::start(const std::function<QString()> &place)
{
    where = place;
    auto *dispatcher = QAbstractEventDispatcher::instance();
    connect(dispatcher, &QAbstractEventDispatcher::awake, this, &LoopTurns::beginTurn);
    connect(dispatcher, &QAbstractEventDispatcher::aboutToBlock, this, &LoopTurns::endTurn);
}

void LoopTurns::stop()
{
    QAbstractEventDispatcher::instance()->disconnect(this);
    clock.invalidate();
}

double LoopTurns::shareWithin(double share) const
{
    std::vector<double> sorted = turns;
    std::sort(sorted.begin(), sorted.end());
    return sorted.at(static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1)));
}

QString LoopTurns::summary() const
{
    return QStringLiteral("%1 turns, the longest %2 ms; most computing in one: %3 ms, with %4")
        .arg(QString::number(turns.size()), QString::number(shareWithin(1), 'f', 1),
             QString::number(mostComputing, 'f', 1), mostPlace);
}

// A nested loop begins by looking for events, which ends the turn of the loop around it.
void LoopTurns::beginTurn()
{
    endTurn();
    computed = threadTime();
    clock.start();
}

void LoopTurns::endTurn()
{
    if (!clock.isValid()) {
        return;
    }
    const double time = static_cast<double>(clock.nsecsElapsed()) / 1e6;
    clock.invalidate();
    turns.push_back(time);
    const double computing = threadTime() - computed;
    if (computing > mostComputing) {
        mostComputing = computing;
        mostPlace = where();
    }
}
