#include "Announcer.h"

#include <avahi-common/domain.h>
#include <avahi-common/malloc.h>
#include <avahi-common/strlst.h>
#include <avahi-common/thread-watch.h>
#include <avahi-core/core.h>
#include <avahi-core/log.h>
#include <avahi-core/publish.h>
#include <avahi-core/rr.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr const char *domain = "local";

// Avahi's poll interface, which also notes the sockets it is to watch: there is no other way to
// learn them, and falling silent needs them.
struct NotingPoll : AvahiPoll {
    explicit NotingPoll(const AvahiPoll &real)
        : AvahiPoll(real)
        , wrapped(&real)
    {
        watch_new = [](const AvahiPoll *api, int descriptor, AvahiWatchEvent event,
                       AvahiWatchCallback callback, void *data) {
            const auto *const self = static_cast<const NotingPoll *>(api);
            self->descriptors.push_back(descriptor);
            return self->wrapped->watch_new(self->wrapped, descriptor, event, callback, data);
        };
    }

    const AvahiPoll *wrapped;
    mutable std::vector<int> descriptors;
};

struct Service {
    Announcement announcement;
    AvahiSEntryGroup *group = nullptr;
};

// The address records that all services of a host share; they go with the last of those.
struct Host {
    AvahiSEntryGroup *group = nullptr;
    int services = 0;
};

using ServiceKey = std::pair<QByteArray, QByteArray>; // type, instance

AvahiStringList *txtList(const QList<QByteArray> &strings)
{
    AvahiStringList *list = nullptr;
    for (const QByteArray &string : strings) {
        list = avahi_string_list_add_arbitrary(
            list, reinterpret_cast<const uint8_t *>(string.constData()),
            static_cast<size_t>(string.size()));
    }
    return list;
}

AvahiAddress avahiAddress(const QHostAddress &address)
{
    AvahiAddress result{};
    if (address.protocol() == QAbstractSocket::IPv4Protocol) {
        result.proto = AVAHI_PROTO_INET;
        result.data.ipv4.address = htonl(address.toIPv4Address());
    } else {
        result.proto = AVAHI_PROTO_INET6;
        const Q_IPV6ADDR bytes = address.toIPv6Address();
        std::copy_n(std::begin(bytes.c), sizeof result.data.ipv6.address,
                    static_cast<uint8_t *>(result.data.ipv6.address));
    }
    return result;
}

// Adds a record of that name, its data set by the function given. False when the name is none.
template <typename SetData>
bool addRecord(AvahiServer *server, AvahiSEntryGroup *group, const QByteArray &name, uint16_t type,
               int flags, const SetData &setData)
{
    const bool isHostRecord = type == AVAHI_DNS_TYPE_SRV;
    AvahiRecord *const record =
        avahi_record_new_full(name.constData(), AVAHI_DNS_CLASS_IN, type,
                              isHostRecord ? AVAHI_DEFAULT_TTL_HOST_NAME : AVAHI_DEFAULT_TTL);
    if (!record) {
        return false;
    }
    setData(&record->data);
    const int result = avahi_server_add(server, group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                        static_cast<AvahiPublishFlags>(flags), record);
    avahi_record_unref(record);
    return result >= 0;
}

bool addPointer(AvahiServer *server, AvahiSEntryGroup *group, const QByteArray &from,
                const QByteArray &to)
{
    return addRecord(server, group, from, AVAHI_DNS_TYPE_PTR, 0,
                     [&to](auto *data) { data->ptr.name = avahi_strdup(to.constData()); });
}

bool addTxt(AvahiServer *server, AvahiSEntryGroup *group, const QByteArray &name,
            const QList<QByteArray> &txt, int flags = 0)
{
    return addRecord(server, group, name, AVAHI_DNS_TYPE_TXT, AVAHI_PUBLISH_UNIQUE | flags,
                     [&txt](auto *data) { data->txt.string_list = txtList(txt); });
}

// The instance's full name as Avahi writes names; empty when it cannot be one.
QByteArray serviceName(const QByteArray &instance, const QByteArray &type)
{
    if (instance.isEmpty() || instance.size() > 63 || instance.contains('\0')) {
        return {};
    }
    std::array<char, AVAHI_LABEL_MAX * 4> escaped{};
    char *end = escaped.data();
    size_t left = escaped.size();
    if (!avahi_escape_label(instance.constData(), static_cast<size_t>(instance.size()), &end,
                            &left)) {
        return {};
    }
    return QByteArray(escaped.data()) + '.' + type + '.' + domain;
}

// A service's records, one by one: Avahi's function for services always adds a TXT record.
bool addService(AvahiServer *server, AvahiSEntryGroup *group, const Announcement &announcement)
{
    const QByteArray name = serviceName(announcement.instance, announcement.type);
    const QByteArray type = announcement.type + '.' + domain;
    const QByteArray host = announcement.hostName + '.' + domain;
    if (name.isEmpty() || !avahi_is_valid_service_type_strict(announcement.type.constData())) {
        return false;
    }
    const auto setLocation = [&](auto *data) {
        data->srv.port = announcement.port;
        data->srv.name = avahi_strdup(host.constData());
    };
    return addRecord(server, group, name, AVAHI_DNS_TYPE_SRV, AVAHI_PUBLISH_UNIQUE, setLocation)
        && (!announcement.hasTxt || addTxt(server, group, name, announcement.txt))
        && addPointer(server, group, type, name)
        && addPointer(server, group, "_services._dns-sd._udp.local", type);
}

bool addAddresses(AvahiServer *server, AvahiSEntryGroup *group, const Announcement &announcement)
{
    const QByteArray host = announcement.hostName + '.' + domain;
    for (const QHostAddress &address : announcement.addresses) {
        AvahiAddress record = avahiAddress(address);
        if (avahi_server_add_address(server, group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                     AVAHI_PUBLISH_NO_REVERSE, host.constData(), &record)
            < 0) {
            return false;
        }
    }
    return true;
}

AvahiServer *newServer(const AvahiPoll *poll)
{
    AvahiServerConfig config;
    avahi_server_config_init(&config);
    // Only what is announced here, nothing of the machine itself.
    config.publish_addresses = 0;
    config.publish_hinfo = 0;
    config.publish_workstation = 0;
    config.publish_domain = 0;
    config.enable_wide_area = 0;
    config.disallow_other_stacks = 0;
    config.use_iff_running = 0;
    int error = 0;
    AvahiServer *const server = avahi_server_new(poll, &config, nullptr, nullptr, &error);
    avahi_server_config_free(&config);
    return server;
}

} // namespace

struct Announcer::Private {
    // Holds the poll loop still: every use of the server's objects needs it.
    class Lock {
    public:
        explicit Lock(const Private &owner)
            : guard(owner.mutex)
            , poll(owner.poll)
        {
            if (poll) {
                avahi_threaded_poll_lock(poll);
            }
        }
        ~Lock()
        {
            if (poll) {
                avahi_threaded_poll_unlock(poll);
            }
        }
        Q_DISABLE_COPY_MOVE(Lock)

    private:
        std::scoped_lock<std::mutex> guard;
        AvahiThreadedPoll *const poll;
    };

    void end();
    bool addHost(const Announcement &announcement);
    void releaseHost(const QByteArray &name);
    bool isInState(const ServiceKey &key, AvahiEntryGroupState state, bool both) const;

    mutable std::mutex mutex;
    AvahiThreadedPoll *poll = nullptr; // with the server, or none
    std::unique_ptr<NotingPoll> notingPoll;
    AvahiServer *server = nullptr;
    std::map<ServiceKey, Service> services;
    std::map<QByteArray, Host> hosts;
};

// To be called with the thread stopped: the server's callbacks must not run meanwhile.
void Announcer::Private::end()
{
    if (server) {
        avahi_server_free(server);
        server = nullptr;
    }
    if (poll) {
        avahi_threaded_poll_free(poll);
        poll = nullptr;
    }
    services.clear();
    hosts.clear();
}

bool Announcer::Private::addHost(const Announcement &announcement)
{
    Host &host = hosts[announcement.hostName];
    if (host.services++ > 0) {
        return true;
    }
    host.group = avahi_s_entry_group_new(server, nullptr, nullptr);
    return host.group && addAddresses(server, host.group, announcement)
        && (avahi_s_entry_group_is_empty(host.group)
            || avahi_s_entry_group_commit(host.group) >= 0);
}

void Announcer::Private::releaseHost(const QByteArray &name)
{
    const auto host = hosts.find(name);
    if (--host->second.services == 0) {
        if (host->second.group) {
            avahi_s_entry_group_free(host->second.group);
        }
        hosts.erase(host);
    }
}

// Whether the service's records, or those of its host, or both are in that state.
bool Announcer::Private::isInState(const ServiceKey &key, AvahiEntryGroupState state,
                                   bool both) const
{
    const auto service = services.find(key);
    if (service == services.end()) {
        return false;
    }
    AvahiSEntryGroup *const hostGroup = hosts.at(service->second.announcement.hostName).group;
    const bool own = avahi_s_entry_group_get_state(service->second.group) == state;
    const bool hostsToo = avahi_s_entry_group_is_empty(hostGroup)
        ? both
        : avahi_s_entry_group_get_state(hostGroup) == state;
    return both ? own && hostsToo : own || hostsToo;
}

Announcer::Announcer()
    : d(std::make_unique<Private>())
{
    d->poll = avahi_threaded_poll_new();
    if (!d->poll) {
        return;
    }
    d->notingPoll = std::make_unique<NotingPoll>(*avahi_threaded_poll_get(d->poll));
    d->server = newServer(d->notingPoll.get());
    if (!d->server || avahi_threaded_poll_start(d->poll) < 0) {
        d->end();
    }
}

Announcer::~Announcer()
{
    if (d->poll) {
        avahi_threaded_poll_stop(d->poll);
    }
    d->end();
}

void Announcer::silenceAvahi()
{
    avahi_set_log_function([](AvahiLogLevel, const char *) {});
}

bool Announcer::isRunning() const
{
    const Private::Lock lock(*d);
    return d->server != nullptr;
}

bool Announcer::announce(const Announcement &announcement)
{
    const Private::Lock lock(*d);
    const ServiceKey key{announcement.type, announcement.instance};
    if (!d->server || d->services.count(key) > 0) {
        return false;
    }
    AvahiSEntryGroup *const group = avahi_s_entry_group_new(d->server, nullptr, nullptr);
    if (d->addHost(announcement) && group && addService(d->server, group, announcement)
        && avahi_s_entry_group_commit(group) >= 0) {
        d->services.insert({key, {announcement, group}});
        return true;
    }
    if (group) {
        avahi_s_entry_group_free(group);
    }
    d->releaseHost(announcement.hostName);
    return false;
}

bool Announcer::updateTxt(const QByteArray &instance, const QList<QByteArray> &txt,
                          const QByteArray &type)
{
    const Private::Lock lock(*d);
    const auto service = d->services.find({type, instance});
    if (service == d->services.end() || !service->second.announcement.hasTxt) {
        return false;
    }
    service->second.announcement.txt = txt;
    return addTxt(d->server, service->second.group, serviceName(instance, type), txt,
                  AVAHI_PUBLISH_UPDATE);
}

bool Announcer::withdraw(const QByteArray &instance, const QByteArray &type)
{
    const Private::Lock lock(*d);
    const auto service = d->services.find({type, instance});
    if (service == d->services.end()) {
        return false;
    }
    avahi_s_entry_group_free(service->second.group);
    d->releaseHost(service->second.announcement.hostName);
    d->services.erase(service);
    return true;
}

void Announcer::vanish()
{
    const std::scoped_lock guard(d->mutex);
    if (!d->poll) {
        return;
    }
    avahi_threaded_poll_stop(d->poll);
    // Freeing the server says goodbye, and nothing forbids it that: so it says it to nobody.
    const int nobody = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int descriptor : d->notingPoll->descriptors) {
        ::dup3(nobody, descriptor, O_CLOEXEC);
    }
    ::close(nobody);
    d->end();
}

bool Announcer::isEstablished(const QByteArray &instance, const QByteArray &type) const
{
    const Private::Lock lock(*d);
    return d->isInState({type, instance}, AVAHI_ENTRY_GROUP_ESTABLISHED, true);
}

bool Announcer::hasCollision(const QByteArray &instance, const QByteArray &type) const
{
    const Private::Lock lock(*d);
    return d->isInState({type, instance}, AVAHI_ENTRY_GROUP_COLLISION, false);
}
