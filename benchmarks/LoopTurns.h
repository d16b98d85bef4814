#pragma once

#include <QElapsedTimer>
#include <QObject>

#include <functional>
#include <vector>

// How long the event loop is busy from one look at what has come in to the next, in milliseconds:
// so long does a click wait. The dispatcher must be the toolkit's own (QT_NO_GLIB); GLib's does not
// tell when it has waited.
class LoopTurns final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(LoopTurns)

public:
    LoopTurns() = default;

    // place says how far things are; it is asked at the end of each turn that computed longest so
    // far.
    void start(const std::function<QString()> &place);
    void stop();

    // What the given share of the turns stays within.
    double shareWithin(double share) const;
    // How many turns there were, the longest of them, and the one that computed longest.
    QString summary() const;

private:
    void beginTurn();
    void endTurn();

    std::function<QString()> where;
    QElapsedTimer clock;
    double computed = 0; // by this thread, when the turn began
    std::vector<double> turns;
    // By this thread in one turn. A turn can be longer because something else had the processor.
    double mostComputing = 0;
    QString mostPlace;
};
