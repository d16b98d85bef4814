#pragma once

#include <avahi-common/watch.h>

#include <QObject>
#include <QVector>

// Avahi's poll interface on the event loop of the thread that makes it. Watches and timeouts may be
// changed and freed at any time, also from inside their own callbacks.
//
// Must outlive every user of api(); destroy it outside of its callbacks.
class AvahiQtPoll final : public QObject {
    Q_DISABLE_COPY_MOVE(AvahiQtPoll)

public:
    explicit AvahiQtPoll(QObject *parent = nullptr);

    const AvahiPoll *api() const
    {
        return &table;
    }

    // The UDP sockets that are watched.
    QVector<int> sockets() const;

private:
    AvahiPoll table;
};
