#include "Announcer.h"

#include <QHash>

#include <avahi-common/domain.h>
#include <avahi-common/malloc.h>
#include <avahi-common/strlst.h>
#include <avahi-common/thread-watch.h>
#include <avahi-core/core.h>
#include <avahi-core/log.h>
#include <avahi-core/publish.h>
#include <avahi-core/rr.h>

#include <array>
#include <mutex>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr const char *domain = "local";
constexpr const char *serviceType = "_nmos-node._tcp";
constexpr const char *fullType = "_nmos-node._tcp.local";

// Avahi's event loop, on a thread of its own. Every use of a server's objects needs its lock. It
// also notes the sockets that the server has watched: vanish() needs them, and Avahi has no other
// way to tell them.
struct Poll : AvahiPoll {
    explicit Poll(AvahiThreadedPoll *threadedPoll)
        : AvahiPoll(*avahi_threaded_poll_get(threadedPoll))
        , api(threadedPoll)
    {
        watch_new = [](const AvahiPoll *poll, int descriptor, AvahiWatchEvent event,
                       AvahiWatchCallback callback, void *data) {
            const auto *const self = static_cast<const Poll *>(poll);
            self->descriptors.push_back(descriptor);
            const AvahiPoll *const wrapped = avahi_threaded_poll_get(self->api);
            return wrapped->watch_new(wrapped, descriptor, event, callback, data);
        };
    }
    void lock() const
    {
        avahi_threaded_poll_lock(api);
    }
    void unlock() const
    {
        avahi_threaded_poll_unlock(api);
    }

    AvahiThreadedPoll *const api;
    mutable std::vector<int> descriptors;
};
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

// Adds a record of that name; the function sets its data. False when the name is not valid.
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
QByteArray serviceName(const QByteArray &instance)
{
    std::array<char, AVAHI_DOMAIN_NAME_MAX> name{};
    avahi_service_name_join(name.data(), name.size(), instance.constData(), serviceType, domain);
    return name.data();
}

bool addAddresses(AvahiServer *server, AvahiSEntryGroup *group, const Announcement &announcement)
{
    const QByteArray host = announcement.hostName + '.' + domain;
    for (QHostAddress address : announcement.addresses) {
        address.setScopeId({});
        AvahiAddress record{};
        avahi_address_parse(qPrintable(address.toString()), AVAHI_PROTO_UNSPEC, &record);
        if (avahi_server_add_address(server, group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                     AVAHI_PUBLISH_NO_REVERSE, host.constData(), &record)
            < 0) {
            return false;
        }
    }
    return true;
}

// Adds the records one by one, because Avahi's function for services always adds a TXT record.
bool addService(AvahiServer *server, AvahiSEntryGroup *group, const Announcement &announcement)
{
    const QByteArray name = serviceName(announcement.instance);
    const QByteArray host = announcement.hostName + '.' + domain;
    const auto setLocation = [&](auto *data) {
        data->srv.port = announcement.port;
        data->srv.name = avahi_strdup(host.constData());
    };
    return !name.isEmpty()
        && addRecord(server, group, name, AVAHI_DNS_TYPE_SRV, AVAHI_PUBLISH_UNIQUE, setLocation)
        && (!announcement.hasTxt || addTxt(server, group, name, announcement.txt))
        && addPointer(server, group, fullType, name)
        && addPointer(server, group, "_services._dns-sd._udp.local", fullType)
        && addAddresses(server, group, announcement);
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
    Poll poll{avahi_threaded_poll_new()};
    AvahiServer *server = nullptr;
    QHash<QByteArray, AvahiSEntryGroup *> services; // by instance
};

Announcer::Announcer()
    : d(std::make_unique<Private>())
{
    d->server = newServer(&d->poll);
    avahi_threaded_poll_start(d->poll.api);
}

Announcer::~Announcer()
{
    avahi_threaded_poll_stop(d->poll.api);
    if (d->server) {
        avahi_server_free(d->server);
    }
    avahi_threaded_poll_free(d->poll.api);
}

void Announcer::silenceAvahi()
{
    avahi_set_log_function([](AvahiLogLevel, const char *) {});
}

bool Announcer::isRunning() const
{
    return d->server != nullptr;
}

bool Announcer::announce(const Announcement &announcement)
{
    const std::scoped_lock lock(d->poll);
    if (!d->server || d->services.contains(announcement.instance)) {
        return false;
    }
    AvahiSEntryGroup *const group = avahi_s_entry_group_new(d->server, nullptr, nullptr);
    if (!addService(d->server, group, announcement) || avahi_s_entry_group_commit(group) < 0) {
        avahi_s_entry_group_free(group);
        return false;
    }
    d->services.insert(announcement.instance, group);
    return true;
}

bool Announcer::updateTxt(const QByteArray &instance, const QList<QByteArray> &txt)
{
    const std::scoped_lock lock(d->poll);
    AvahiSEntryGroup *const group = d->services.value(instance);
    return group && addTxt(d->server, group, serviceName(instance), txt, AVAHI_PUBLISH_UPDATE);
}

bool Announcer::withdraw(const QByteArray &instance)
{
    const std::scoped_lock lock(d->poll);
    AvahiSEntryGroup *const group = d->services.take(instance);
    if (group) {
        avahi_s_entry_group_free(group);
    }
    return group;
}

void Announcer::vanish()
{
    avahi_threaded_poll_stop(d->poll.api);
    // Freeing the server sends goodbyes, which no option turns off: they go to /dev/null.
    const int nobody = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int descriptor : d->poll.descriptors) {
        ::dup3(nobody, descriptor, O_CLOEXEC);
    }
    ::close(nobody);
    if (d->server) {
        avahi_server_free(d->server);
    }
    d->server = nullptr;
    d->services.clear();
}
