#pragma once

#include "AvahiQtPoll.h"

#include <avahi-core/core.h>

#include <QHash>
#include <QSet>
#include <QString>
#include <QTimer>

#include <memory>

namespace QMdnsEngine {

// An interface and an IP version: each record is cached for each of them.
using Link = QPair<int, int>;

const Link everyLink{AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC};

class AbstractServer;
class Cache;
class RecordLookup;
class ResolverPrivate;

// Avahi's stack and the lookups that run on it. Browsers and resolvers share it with their server.
// After close() it does nothing.
class ServerPrivate final {
    Q_DISABLE_COPY_MOVE(ServerPrivate)

public:
    ServerPrivate();
    ~ServerPrivate();

    // The private part; null for another AbstractServer.
    static std::shared_ptr<ServerPrivate> of(AbstractServer *server);

    // Ends all lookups and gives the sockets back.
    void close();

    // Sends a packet to the multicast DNS group on each link, over IPv4 and IPv6, from Avahi's own
    // sockets: an answer to another port than theirs would come to the asker alone (RFC 6762,
    // section 6.7). What the system refuses is left out.
    void sendToAll(const QByteArray &packet) const;

    AvahiQtPoll poll;
    AvahiServer *avahi = nullptr; // null: closed, or never opened
    QString failure; // why it was never opened
    QSet<RecordLookup *> lookups;
    // Those that may rest, by the records that wake them.
    QMultiHash<PacketGuard::Owner, RecordLookup *> unique;

private:
    void hear(const QVector<PacketGuard::Owner> &owners);
    void wake();

    QTimer waking;
    QSet<PacketGuard::Owner> heard; // and not read yet
    QSet<PacketGuard::Owner> readOnce; // and to be read once more, when Avahi has settled
};

// Where the hosts of a browser's services are seen, and who asks for their addresses. Host names
// are in lower case.
class CachePrivate final {
public:
    // The private part; null for a null cache.
    static std::shared_ptr<CachePrivate> of(Cache *cache);

    // Notes that the host is seen on the link, and has it asked for there.
    void see(const QByteArray &host, Link link);

    QHash<QByteArray, QSet<Link>> links;
    QMultiHash<QByteArray, ResolverPrivate *> resolvers;
};

} // namespace QMdnsEngine
