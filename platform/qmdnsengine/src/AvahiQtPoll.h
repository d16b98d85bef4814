#pragma once

#include <avahi-common/watch.h>

#include <QObject>

// Avahi's poll interface on the event loop of the thread that makes it. Watches and timeouts may be
// changed and freed at any time, also from inside their own callbacks.
//
// The object has to outlive whatever was given its interface; destroy it outside of its callbacks.
class AvahiQtPoll final : public QObject {
    Q_DISABLE_COPY_MOVE(AvahiQtPoll)

public:
    explicit AvahiQtPoll(QObject *parent = nullptr);

    const AvahiPoll *api() const
    {
        return &table;
    }

private:
    AvahiPoll table;
};
