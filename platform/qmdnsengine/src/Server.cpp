#include <qmdnsengine/cache.h>
#include <qmdnsengine/server.h>

#include "RecordLookup.h"
#include "ServerPrivate.h"

#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-core/log.h>

#include <QLoggingCategory>

namespace {

Q_LOGGING_CATEGORY(mdnsLog, "nodepatch.mdns", QtWarningMsg)

// Records that the stack keeps for each interface: a plant of some thousand nodes with everything
// that they publish. More are not remembered, so that a hostile sender cannot take all memory.
constexpr unsigned cacheLimit = 32768;

// Avahi's warnings and errors are about what others send and what else runs on this machine; they
// come with every damaged packet. None is a reason to speak up.
void logLine(AvahiLogLevel level, const char *text)
{
    if (level == AVAHI_LOG_DEBUG) {
        qCDebug(mdnsLog, "%s", text);
    } else {
        qCInfo(mdnsLog, "%s", text);
    }
}

} // namespace

namespace QMdnsEngine {

ServerPrivate::ServerPrivate()
{
    avahi_set_log_function(logLine);
    AvahiServerConfig config;
    avahi_server_config_init(&config);
    // It never appears anywhere, but without one the stack goes and looks up the machine's own.
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
    // A link without its cable is gone, also where its addresses stay: it is asked anew when it is
    // back.
    config.use_iff_running = 1;
    config.n_cache_entries_max = cacheLimit;
    int error = AVAHI_OK;
    avahi = avahi_server_new(poll.api(), &config, nullptr, nullptr, &error);
    avahi_server_config_free(&config);
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

Cache::Cache(QObject *parent)
    : QObject(parent)
{
}

Cache::~Cache() = default;

} // namespace QMdnsEngine
