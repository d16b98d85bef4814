#pragma once

#include <QElapsedTimer>
#include <QObject>

#include <functional>
#include <vector>

// Measures the turns of the event loop, in milliseconds. A turn begins when the loop looks for
// events and ends when it looks again, also in a nested loop; a click waits for at most one turn.
//
// Needs Qt's own event dispatcher (QT_NO_GLIB); GLib's does not report when it has waited.
class LoopTurns final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(LoopTurns)

public:
    LoopTurns() = default;

    // Begins to measure. place returns how far the work is; it is called at the end of each turn
    // that computed longer than all before it.
    void start(const std::function<QString()> &place);
    void stop();

    // The time that the given share of the turns does not exceed; share is from 0 to 1. There must
    // have been a turn.
    double shareWithin(double share) const;
    // A line with the number of turns, the longest, and the longest computing with its place.
    QString summary() const;

private:
    void beginTurn();
    void endTurn();

    std::function<QString()> where;
    QElapsedTimer clock;
    double computed = 0; // this thread's processor time when the turn began
    std::vector<double> turns;
    // The most processor time that this thread took in one turn, and where. A turn can be longer
    // because another process had the processor.
    double mostComputing = 0;
    QString mostPlace;
};
