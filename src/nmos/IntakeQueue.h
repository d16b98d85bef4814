#pragma once

#include <QList>
#include <QObject>
#include <QScopedValueRollback>
#include <QString>

#include <chrono>
#include <functional>
#include <optional>

// Decides when the intake of a node may start, so that no reported node is lost, no node waits
// behind another one's silence, and the operator goes first.
//
// An intake asks a node for what it has and waits for the answers in nested event loops; reports of
// other nodes come in meanwhile. If each started at once, they would pile up inside one another
// until the request layer refuses them, and one that hangs would keep those below it from
// returning. So an intake starts
//  - when no request waits; or
//  - when the innermost request has stalled, because then nobody knows whether it will ever end,
//    and fewer than three requests wait (a node that discovery reports) or fewer than two (a stored
//    device). One level always stays free for the operator, and one more for nodes that are known
//    to be there.
// Whatever cannot start yet is kept and starts as soon as it may, without waiting for the one
// before to return.
class IntakeQueue final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(IntakeQueue)

public:
    using Intake = std::function<void()>;

    // Nodes that discovery reports have just answered; a stored device may be switched off. The
    // former go first.
    enum class Source {
        Discovery,
        Stored,
    };

    explicit IntakeQueue(QObject *parent = nullptr);

    // Keeps an intake of the node at host that is listed under name; in place of one that is kept
    // for this host and name already. A discovered node takes the place of a stored device with the
    // same host.
    void add(const QString &host, const QString &name, Source source, Intake intake);

    // Starts the first intake if it may start, and arranges for the rest. Call it after add(). The
    // intake runs inside the call, so the call may take long.
    void run();

    // While one of these lives, a command of the operator runs. A node may take seconds to apply
    // what it is told, so a command's request counts as stalled only after ten seconds: an intake
    // that started inside its wait could hold it up.
    class OperatorCommand final {
        Q_DISABLE_COPY_MOVE(OperatorCommand)

    public:
        explicit OperatorCommand(IntakeQueue *queue);

    private:
        QScopedValueRollback<bool> innermost;
    };

private:
    struct Entry {
        QString host;
        QString name;
        Source source;
        Intake intake;
    };

    std::optional<std::chrono::milliseconds> delayUntilStart(Source source) const;
    void runLater(std::chrono::milliseconds delay);

    QList<Entry> entries; // discovered nodes first
    bool innermostIsCommand = false; // of all commands and intakes that wait inside one another
    bool timerPending = false;
};
