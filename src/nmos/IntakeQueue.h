#pragma once

#include <QList>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <optional>

// Decides when the intake of a node starts: no reported node is lost, none waits behind one that
// does not answer, and what the operator does comes first.
//
// An intake asks a node for what it has and waits for the answers in nested event loops; reports of
// other nodes come in meanwhile. If each started at once, they would nest until requests are
// refused. So an intake starts
//  - when no request waits; or
//  - when the request on the highest level, whosever it is, has waited for 300 ms, because nobody
//    knows whether it will ever end, and fewer than three levels are in use (a node that discovery
//    reports) or fewer than two (a stored device). One level always stays free for the operator,
//    and one more for nodes that are known to be there.
// Whatever cannot start yet is kept and starts as soon as it may, without waiting for the one
// before to return.
//
// What waits for what:
//  - A command, a check, a dialog or a box of the operator waits for no intake. An intake that
//    began while it waited is interrupted as soon as it can go on, and is queued again.
//  - An intake waits for whatever began while it waited: other intakes and the operator's commands.
//  - Of two commands the one that began first waits for the other one.
class IntakeQueue final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(IntakeQueue)

public:
    // Asks a node and lists what it has. When it is interrupted (see net/NestedWait.h), all its
    // requests fail from then on; it is called again later, the same object with its state.
    using Intake = std::function<void()>;

    // Nodes that discovery reports have just answered; a stored device may be switched off. The
    // former go first.
    enum class Source {
        Discovery,
        Stored,
    };

    explicit IntakeQueue(QObject *parent = nullptr);

    // Queues an intake of the node at host that is listed under name. Does nothing when one of the
    // same host, name and source is queued already. A discovered node replaces a stored device of
    // its host.
    void add(const QString &host, const QString &name, Source source, Intake intake);

    // Starts the first intake if it may start, and schedules the next. Call it after add(). The
    // intake runs inside the call, so the call may take long.
    void run();

private:
    struct Entry {
        QString host;
        QString name;
        Source source;
        Intake intake;

        bool operator==(const Entry &other) const
        {
            return source == other.source && host == other.host && name == other.name;
        }
    };

    void append(const Entry &entry);
    std::optional<std::chrono::milliseconds> delayUntilStart(Source source) const;
    void runLater(std::chrono::milliseconds delay);

    QList<Entry> entries; // discovered nodes first
    bool timerPending = false;
};
