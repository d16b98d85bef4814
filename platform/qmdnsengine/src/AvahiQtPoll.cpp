#include "AvahiQtPoll.h"

#include <avahi-common/timeval.h>

#include <QElapsedTimer>
#include <QSocketNotifier>
#include <QTimer>

#include <limits>

namespace {

// The time that one turn of the event loop gives to the packets of a socket, and to Avahi's due
// events. Each costs as much as the cache is large: thousands of services at once would make the
// window stand still for seconds.
constexpr qint64 millisecondsPerTurn = 10;

} // namespace

// Both kinds are children of the poll object and are deleted later, so that one which is freed
// inside its own callback still exists while the callback returns through it.

struct AvahiWatch final : QObject {
    AvahiWatch(AvahiQtPoll *parent, int descriptor, AvahiWatchCallback function, void *data)
        : QObject(parent)
        , poll(parent)
        , fd(descriptor)
        , callback(function)
        , userdata(data)
        , guarded(PacketGuard::isNameServiceSocket(descriptor))
        , readable(fd, QSocketNotifier::Read)
        , writable(fd, QSocketNotifier::Write)
    {
        if (guarded) {
            PacketGuard::makeRoom(fd);
        }
        connect(&readable, &QSocketNotifier::activated, this, [this] { activate(AVAHI_WATCH_IN); });
        connect(&writable, &QSocketNotifier::activated, this,
                [this] { activate(AVAHI_WATCH_OUT); });
    }

    void listen(AvahiWatchEvent events)
    {
        readable.setEnabled((events & AVAHI_WATCH_IN) != 0);
        writable.setEnabled((events & AVAHI_WATCH_OUT) != 0);
    }

    void activate(AvahiWatchEvent event)
    {
        if (!guarded || event != AVAHI_WATCH_IN) {
            call(event);
            return;
        }
        // Avahi reads one packet a call. When a whole plant answers at once, one packet a turn of
        // the event loop would leave the rest to overflow the socket's buffer.
        QVector<PacketGuard::Owner> owners;
        QElapsedTimer turn;
        turn.start();
        for (int i = 0; i < packetsPerTurn && !turn.hasExpired(millisecondsPerTurn) && callback
             && PacketGuard::admitNext(fd, &owners);
             ++i) {
            if (poll->heard) {
                poll->heard(owners);
            }
            call(event);
        }
    }

    void call(AvahiWatchEvent event)
    {
        if (callback) {
            happened = event;
            callback(this, fd, event, userdata);
            happened = static_cast<AvahiWatchEvent>(0);
        }
    }

    static constexpr int packetsPerTurn = 64;

    AvahiQtPoll *poll;
    int fd;
    AvahiWatchCallback callback;
    void *userdata;
    bool guarded;
    AvahiWatchEvent happened = static_cast<AvahiWatchEvent>(0);
    QSocketNotifier readable;
    QSocketNotifier writable;
};

struct AvahiTimeout final : QObject {
    AvahiTimeout(QObject *parent, AvahiTimeoutCallback function, void *data)
        : QObject(parent)
        , callback(function)
        , userdata(data)
    {
        timer.setSingleShot(true);
        timer.setTimerType(Qt::PreciseTimer);
        connect(&timer, &QTimer::timeout, this, &AvahiTimeout::workOff);
    }

    void schedule(const timeval *when)
    {
        armed = when != nullptr;
        if (!armed) {
            timer.stop();
            return;
        }
        due = *when;
        // Round up: Avahi ignores an early timeout.
        const qint64 left = (-qint64{avahi_age(when)} + 999) / 1000;
        const qint64 longest = std::numeric_limits<int>::max();
        timer.start(static_cast<int>(qBound(qint64{0}, left, longest)));
    }

    // A callback handles one pending event and each record adds one; one per turn would let them
    // pile up, and Avahi compares each record with all pending ones.
    void workOff()
    {
        QElapsedTimer turn;
        turn.start();
        while (armed && avahi_age(&due) >= 0 && !turn.hasExpired(millisecondsPerTurn)) {
            callback(this, userdata);
        }
    }

    AvahiTimeoutCallback callback;
    void *userdata;
    bool armed = false;
    timeval due{};
    QTimer timer;
};

namespace {

AvahiWatch *newWatch(const AvahiPoll *api, int fd, AvahiWatchEvent events,
                     AvahiWatchCallback callback, void *userdata)
{
    auto *const watch =
        new AvahiWatch(static_cast<AvahiQtPoll *>(api->userdata), fd, callback, userdata);
    watch->listen(events);
    return watch;
}

void updateWatch(AvahiWatch *watch, AvahiWatchEvent events)
{
    watch->listen(events);
}

AvahiWatchEvent watchEvents(AvahiWatch *watch)
{
    return watch->happened;
}

void freeWatch(AvahiWatch *watch)
{
    watch->listen(static_cast<AvahiWatchEvent>(0));
    watch->callback = nullptr;
    watch->deleteLater();
}

AvahiTimeout *newTimeout(const AvahiPoll *api, const timeval *when, AvahiTimeoutCallback callback,
                         void *userdata)
{
    auto *const timeout =
        new AvahiTimeout(static_cast<QObject *>(api->userdata), callback, userdata);
    timeout->schedule(when);
    return timeout;
}

void updateTimeout(AvahiTimeout *timeout, const timeval *when)
{
    timeout->schedule(when);
}

void freeTimeout(AvahiTimeout *timeout)
{
    timeout->schedule(nullptr);
    timeout->deleteLater();
}

} // namespace

AvahiQtPoll::AvahiQtPoll(QObject *parent)
    : QObject(parent)
    , table{this,      newWatch,   updateWatch,   watchEvents,
            freeWatch, newTimeout, updateTimeout, freeTimeout}
{
}

QVector<int> AvahiQtPoll::sockets() const
{
    QVector<int> found;
    for (const QObject *const child : children()) {
        const auto *const watch = dynamic_cast<const AvahiWatch *>(child);
        if (watch && watch->guarded && watch->callback) {
            found += watch->fd;
        }
    }
    return found;
}
