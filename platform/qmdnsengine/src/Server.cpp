#include <qmdnsengine/cache.h>
#include <qmdnsengine/server.h>

#include "RecordLookup.h"
#include "ServerPrivate.h"

#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-core/log.h>

#include <QLoggingCategory>
#include <QNetworkInterface>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <chrono>
#include <utility>

namespace {

Q_LOGGING_CATEGORY(mdnsLog, "nodepatch.mdns", QtWarningMsg)

// Records that the stack keeps for each interface: a plant of some thousand nodes with everything
// that they publish. More are not remembered, so that a hostile sender cannot take all memory.
constexpr unsigned cacheLimit = 32768;

// Avahi keeps for a second what another record replaces or a goodbye withdraws.
constexpr std::chrono::milliseconds readAgainAfter{1200};

// Avahi warns about every damaged packet; shown only when the category is on.
void logLine(AvahiLogLevel level, const char *text)
{
    if (level == AVAHI_LOG_DEBUG) {
        qCDebug(mdnsLog, "%s", text);
    } else {
        qCInfo(mdnsLog, "%s", text);
    }
}

// The socket has one of the IP versions and refuses the other's address.
void sendOnLink(int fd, int link, const QByteArray &packet)
{
    const auto size = static_cast<size_t>(packet.size());
    const in_port_t port = htons(5353);
    const ip_mreqn route{{}, {}, link};
    const sockaddr_in ip4{AF_INET, port, {htonl(0xe00000fb)}, {}}; // 224.0.0.251
    if (setsockopt(fd, IPPROTO_IP, IP_MULTICAST_IF, &route, sizeof route) == 0) {
        sendto(fd, packet.constData(), size, MSG_DONTWAIT, reinterpret_cast<const sockaddr *>(&ip4),
               sizeof ip4);
    }
    sockaddr_in6 ip6{AF_INET6, port, 0, {}, static_cast<quint32>(link)};
    inet_pton(AF_INET6, "ff02::fb", &ip6.sin6_addr);
    sendto(fd, packet.constData(), size, MSG_DONTWAIT, reinterpret_cast<const sockaddr *>(&ip6),
           sizeof ip6);
}

} // namespace

namespace QMdnsEngine {

ServerPrivate::ServerPrivate()
{
    avahi_set_log_function(logLine);
    AvahiServerConfig config;
    avahi_server_config_init(&config);
    // Never sent; otherwise Avahi looks up the machine's name.
    config.host_name = avahi_strdup("nodepatch");
    config.use_ipv4 = 1;
    config.use_ipv6 = 1;
    config.disable_publishing = 1;
    config.publish_hinfo = 0;
    config.publish_addresses = 0;
    config.publish_workstation = 0;
    config.publish_domain = 0;
    config.enable_wide_area = 0;
    config.disallow_other_stacks = 0;
    // Treat an interface without a cable as gone, so that it is asked again.
    config.use_iff_running = 1;
    config.n_cache_entries_max = cacheLimit;
    int error = AVAHI_OK;
    avahi = avahi_server_new(poll.api(), &config, nullptr, nullptr, &error);
    avahi_server_config_free(&config);
    waking.setSingleShot(true);
    QObject::connect(&waking, &QTimer::timeout, &poll, [this] { wake(); });
    poll.heard = [this](const auto &owners) {
        hear(owners);
    };
    if (!avahi) {
        failure = QString::fromUtf8(avahi_strerror(error));
        qCWarning(mdnsLog, "No mDNS on this machine: %s", avahi_strerror(error));
    }
}

ServerPrivate::~ServerPrivate()
{
    close();
}

std::shared_ptr<ServerPrivate> ServerPrivate::of(AbstractServer *server)
{
    const auto *const ours = qobject_cast<Server *>(server);
    return ours ? ours->d : nullptr;
}

void ServerPrivate::close()
{
    const QSet<RecordLookup *> running = lookups;
    for (RecordLookup *const lookup : running) {
        lookup->stop();
    }
    if (avahi) {
        avahi_server_free(avahi);
        avahi = nullptr;
    }
}

void ServerPrivate::hear(const QVector<PacketGuard::Owner> &owners)
{
    for (const PacketGuard::Owner &owner : owners) {
        if (unique.contains(owner)) {
            heard.insert(owner);
        }
    }
    if (!heard.isEmpty() && !waking.isActive()) {
        waking.start(0);
    }
}

void ServerPrivate::wake()
{
    const QSet<PacketGuard::Owner> owners = heard + readOnce;
    readOnce = std::exchange(heard, {});
    for (const PacketGuard::Owner &owner : owners) {
        const auto woken = unique.values(owner);
        for (RecordLookup *const lookup : woken) {
            lookup->readAgain();
        }
    }
    if (!readOnce.isEmpty()) {
        waking.start(readAgainAfter);
    }
}

void ServerPrivate::sendToAll(const QByteArray &packet) const
{
    const auto links = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface &link : links) {
        const auto flags = link.flags();
        const bool takesPart = flags.testFlag(QNetworkInterface::IsRunning)
            && (flags.testFlag(QNetworkInterface::CanMulticast)
                || flags.testFlag(QNetworkInterface::IsLoopBack));
        const QVector<int> sockets = takesPart ? poll.sockets() : QVector<int>();
        for (const int fd : sockets) {
            sendOnLink(fd, link.index(), packet);
        }
    }
}

AbstractServer::AbstractServer(QObject *parent)
    : QObject(parent)
{
}

AbstractServer::~AbstractServer() = default;

Server::Server(QObject *parent)
    : AbstractServer(parent)
    , d(std::make_shared<ServerPrivate>())
{
    if (!d->avahi) {
        QMetaObject::invokeMethod(
            this, [this] { emit error(d->failure); }, Qt::QueuedConnection);
    }
}

Server::~Server()
{
    d->close();
}

std::shared_ptr<CachePrivate> CachePrivate::of(Cache *cache)
{
    return cache ? cache->d : nullptr;
}

Cache::Cache(QObject *parent)
    : QObject(parent)
    , d(std::make_shared<CachePrivate>())
{
}

Cache::~Cache() = default;

} // namespace QMdnsEngine
