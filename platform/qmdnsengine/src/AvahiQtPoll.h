#pragma once

#include "PacketGuard.h"

#include <avahi-common/watch.h>

#include <QObject>
#include <QVector>

#include <functional>

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

    // Called with the records of each packet that Avahi is given, before it reads them; queries
    // have none but known answers.
    std::function<void(const QVector<PacketGuard::Owner> &)> heard;

    // The UDP sockets that are watched.
    QVector<int> sockets() const;

private:
    AvahiPoll table;
};
