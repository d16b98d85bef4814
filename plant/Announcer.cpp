#include "Announcer.h"

#include <avahi-common/domain.h>
#include <avahi-common/malloc.h>
#include <avahi-common/strlst.h>
#include <avahi-common/thread-watch.h>
#include <avahi-core/core.h>
#include <avahi-core/log.h>
#include <avahi-core/publish.h>
#include <avahi-core/rr.h>

#include <array>

namespace {

constexpr const char *domain = "local";
constexpr const char *serviceType = "_nmos-node._tcp";
constexpr const char *fullType = "_nmos-node._tcp.local";

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
    const auto setTexts = [&announcement](auto *data) {
        data->txt.string_list = txtList(announcement.txt);
    };
    return !name.isEmpty()
        && addRecord(server, group, name, AVAHI_DNS_TYPE_SRV, AVAHI_PUBLISH_UNIQUE, setLocation)
        && (!announcement.hasTxt
            || addRecord(server, group, name, AVAHI_DNS_TYPE_TXT, AVAHI_PUBLISH_UNIQUE, setTexts))
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

// Avahi's event loop runs on a thread of its own. Every use of the server needs its lock.
struct Announcer::Private {
    AvahiThreadedPoll *poll = avahi_threaded_poll_new();
    AvahiServer *server = newServer(avahi_threaded_poll_get(poll));
};

Announcer::Announcer()
    : d(std::make_unique<Private>())
{
    avahi_threaded_poll_start(d->poll);
}

Announcer::~Announcer()
{
    avahi_threaded_poll_stop(d->poll);
    if (d->server) {
        avahi_server_free(d->server);
    }
    avahi_threaded_poll_free(d->poll);
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
    if (!d->server) {
        return false;
    }
    avahi_threaded_poll_lock(d->poll);
    AvahiSEntryGroup *const group = avahi_s_entry_group_new(d->server, nullptr, nullptr);
    const bool announced =
        addService(d->server, group, announcement) && avahi_s_entry_group_commit(group) >= 0;
    if (!announced) {
        avahi_s_entry_group_free(group);
    }
    avahi_threaded_poll_unlock(d->poll);
    return announced;
}
