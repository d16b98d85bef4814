#pragma once

#include <QList>
#include <QObject>
#include <QString>

#include <functional>

// Decides when the intake of a node may start, so that no reported node is lost and the operator
// goes first.
//
// An intake waits for its node's answers in nested event loops, and reports of other nodes come in
// meanwhile. Started at once, they would pile up inside one another until the request layer refuses
// them, and one that hangs would keep those below it from returning. So an intake starts when no
// request waits; or inside the wait of one single request that has stalled, because then nobody
// knows whether it will ever end. Two of the four levels stay free for the operator. Whatever
// cannot start is kept, one place a host, and started as soon as it can be.
class IntakeQueue final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(IntakeQueue)

public:
    using Intake = std::function<void()>;

    // A node that discovery reports has just answered, a manual device may be switched off: the
    // former go first.
    enum class Source {
        Discovery,
        Manual,
    };

    explicit IntakeQueue(QObject *parent = nullptr);

    // Keeps an intake of the node at host; in place of one that is kept for this host already.
    void add(const QString &host, Source source, Intake intake);

    // Starts one intake if it may start, and arranges for the rest. Call it after add(). The intake
    // runs inside the call, so it may take long.
    void run();

    // While one of these lives, a command of the operator runs. A node may take seconds to apply
    // what it is told; nothing is started inside such a wait until it looks hopeless.
    class Command final {
        Q_DISABLE_COPY_MOVE(Command)

    public:
        explicit Command(IntakeQueue *queue);
        ~Command();

    private:
        IntakeQueue *queue;
    };

private:
    struct Entry {
        QString host;
        Source source;
        Intake intake;
    };

    int delayUntilStart() const;
    void arrange();

    QList<Entry> entries;
    int commands = 0;
    bool arranged = false;
};
