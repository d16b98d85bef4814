#include <qmdnsengine/browser.h>

#include "RecordLookup.h"
#include "ServerPrivate.h"

#include <avahi-common/domain.h>
#include <avahi-core/rr.h>

#include <QQueue>
#include <QSet>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <map>
#include <vector>

namespace QMdnsEngine {

namespace {

const char browseAll[] = "_services._dns-sd._udp.local.";

// Each type costs queries for as long as the browser lives; a hostile sender can invent any number.
constexpr size_t typeLimit = 1000;
constexpr int typeLength = 255; // RFC 1035, section 2.3.4

// Avahi asks for a type after 1, 3, 7, ... seconds, in the end once an hour, and has no function to
// ask sooner. So the layer asks by itself in between, at these intervals.
constexpr std::chrono::milliseconds askAgainFirst{60'000};
constexpr std::chrono::milliseconds askAgainLast{240'000};
constexpr int questionsSize = 1000; // of one packet, so that it fits into a frame

// Records the links report for one name: the latest counts; when removed, the one before.
class Claims {
public:
    void take(RecordLookup::Event event, Link link, AvahiRecord *record)
    {
        forget([link, record](const Claim &claim) {
            return claim.link == link && avahi_record_equal_no_ttl(claim.record.get(), record) != 0;
        });
        if (event == RecordLookup::Event::Found) {
            claims.push_back({link, {avahi_record_ref(record), avahi_record_unref}});
        }
    }

    void forget(Link link)
    {
        forget([link](const Claim &claim) { return claim.link == link; });
    }

    bool isEmpty() const
    {
        return claims.empty();
    }
    Link link() const
    {
        return claims.back().link;
    }
    const AvahiRecord *record() const
    {
        return claims.back().record.get();
    }

private:
    struct Claim {
        Link link;
        std::shared_ptr<AvahiRecord> record;
    };

    template <typename Condition>
    void forget(Condition condition)
    {
        claims.erase(std::remove_if(claims.begin(), claims.end(), condition), claims.end());
    }

    std::vector<Claim> claims;
};

// An instance on a link where a pointer to it is seen. It is asked for on no other.
struct Sighting {
    QSet<QByteArray> pointers; // the types and subtypes it is listed under
    bool textRead = false; // the attributes that came with the first answer are in
    std::unique_ptr<RecordLookup> targetLookup;
    std::unique_ptr<RecordLookup> textLookup;
};

struct Instance {
    QByteArray name; // as Avahi writes it, with the trailing dot
    Service service; // as last reported; before that only name and type
    bool reported = false;
    bool queued = false;
    std::map<Link, Sighting> sightings;
    Claims targets;
    Claims texts;
};

} // namespace

// Avahi's events update and queue an Instance; the queue is processed after the packet, so one
// packet gives one signal. Emitting comes last: a receiver may destroy this object.
class BrowserPrivate final {
    Q_DISABLE_COPY_MOVE(BrowserPrivate)

public:
    BrowserPrivate(Browser *browser, std::shared_ptr<ServerPrivate> onServer,
                   std::shared_ptr<CachePrivate> sharedCache, const QByteArray &type)
        : q(browser)
        , server(std::move(onServer))
        , cache(std::move(sharedCache))
        , again(q)
    {
        if (type.startsWith('_') && type.size() <= typeLength) {
            browse(type, type.toLower() == browseAll);
        }
        QObject::connect(&again, &QTimer::timeout, q, [this] { askAgain(); });
        again.start(askAgainFirst);
    }

private:
    using Event = RecordLookup::Event;

    void browse(const QByteArray &type, bool forTypes);
    void askAgain();
    void onPointer(Event event, Link link, const QByteArray &type, const QByteArray &name);
    void watch(const QByteArray &key, Instance &instance, Link link);
    void enqueue(const QByteArray &key, Instance &instance);
    void report(const QByteArray &key);
    static void dropUnseen(Instance &instance);

    Browser *q;
    std::shared_ptr<ServerPrivate> server;
    std::shared_ptr<CachePrivate> cache;
    QTimer again;
    bool changed = false; // since the layer asked by itself
    std::map<QByteArray, std::unique_ptr<RecordLookup>> types;
    std::map<QByteArray, Instance> instances; // by full name, escaped and in lower case
    QQueue<QByteArray> queue;
};

void BrowserPrivate::browse(const QByteArray &type, bool forTypes)
{
    const QByteArray key = type.toLower();
    if (types.count(key) > 0 || types.size() >= typeLimit) {
        return;
    }
    // A type is never dropped: when one node says goodbye to it, others may still offer it.
    types[key] = std::make_unique<RecordLookup>(
        server, Question{type, AVAHI_DNS_TYPE_PTR},
        [this, key, forTypes](Event event, Link link, const AvahiRecord *record) {
            if (!record) {
                return;
            }
            if (!forTypes) {
                onPointer(event, link, key, record->data.ptr.name);
            } else if (event == Event::Found) {
                browse(publicName(record->data.ptr.name), false);
            }
        });
}

// An ordinary question (RFC 6762, section 5.2), so that the answers go to the whole network: one to
// the asker alone would reach one of the sockets on port 5353 only, another program's perhaps. It
// has no known answers: what comes with an answer renews the other records, which Avahi would ask
// each node for.
void BrowserPrivate::askAgain()
{
    again.setInterval(changed ? askAgainFirst : qMin(2 * again.intervalAsDuration(), askAgainLast));
    changed = false;
    if (!server) {
        return;
    }
    QByteArray questions;
    int count = 0;
    const auto send = [&] {
        server->sendToAll(QByteArray(4, '\0') + static_cast<char>(count >> 8)
                          + static_cast<char>(count) + QByteArray(6, '\0') + questions);
        questions.clear();
        count = 0;
    };
    for (const auto &type : types) {
        const QByteArray name = wireName(type.first);
        if (!name.isEmpty()) {
            questions += name + QByteArray("\0\x0c\0\x01", 4); // PTR, IN
            ++count;
        }
        if (questions.size() > questionsSize) {
            send();
        }
    }
    if (count > 0) {
        send();
    }
}

void BrowserPrivate::onPointer(Event event, Link link, const QByteArray &type,
                               const QByteArray &name)
{
    const QByteArray key = name.toLower();
    auto found = instances.find(key);
    if (found == instances.end()) {
        char label[AVAHI_LABEL_MAX];
        const char *rest = name.constData();
        if (event == Event::Lost || !avahi_unescape_label(&rest, label, sizeof label)) {
            return;
        }
        found = instances.emplace(key, Instance()).first;
        found->second.name = name + '.';
        found->second.service.setName(label);
        found->second.service.setType(publicName(rest));
    }
    Instance &instance = found->second;
    if (event == Event::Found) {
        const bool isNew = instance.sightings.count(link) == 0;
        instance.sightings[link].pointers.insert(type);
        if (isNew) {
            watch(key, instance, link);
        }
    } else if (instance.sightings.count(link) > 0) {
        instance.sightings[link].pointers.remove(type);
    }
    enqueue(key, instance);
}

void BrowserPrivate::watch(const QByteArray &key, Instance &instance, Link link)
{
    Sighting &sighting = instance.sightings[link];
    sighting.targetLookup = std::make_unique<RecordLookup>(
        server, Question{instance.name, AVAHI_DNS_TYPE_SRV, link},
        [this, key, &instance](Event event, Link where, AvahiRecord *record) {
            if (record) {
                instance.targets.take(event, where, record);
                enqueue(key, instance);
            }
        });
    sighting.textLookup = std::make_unique<RecordLookup>(
        server, Question{instance.name, AVAHI_DNS_TYPE_TXT, link},
        [this, key, &instance, &sighting](Event event, Link where, AvahiRecord *record) {
            if (record) {
                instance.texts.take(event, where, record);
            } else {
                sighting.textRead = true;
            }
            enqueue(key, instance);
        });
}

void BrowserPrivate::enqueue(const QByteArray &key, Instance &instance)
{
    if (!instance.queued) {
        instance.queued = true;
        queue.enqueue(key);
        QMetaObject::invokeMethod(
            q, [this] { report(queue.dequeue()); }, Qt::QueuedConnection);
    }
}

// Forgets the links where no pointer is seen any more.
void BrowserPrivate::dropUnseen(Instance &instance)
{
    for (auto it = instance.sightings.begin(); it != instance.sightings.end();) {
        if (it->second.pointers.isEmpty()) {
            instance.targets.forget(it->first);
            instance.texts.forget(it->first);
            it = instance.sightings.erase(it);
        } else {
            ++it;
        }
    }
}

void BrowserPrivate::report(const QByteArray &key)
{
    Instance &instance = instances[key];
    instance.queued = false;
    if (!server->avahi) {
        return;
    }
    dropUnseen(instance);
    const bool known = instance.reported;
    const bool seen = !instance.sightings.empty();
    Service service = instance.service;
    if (!seen || instance.targets.isEmpty()) {
        instance.reported = false;
        instance.service.setAttributes({});
        if (!seen) {
            instances.erase(key);
            if (cache) {
                cache->links.remove(service.hostname().toLower());
            }
        }
        if (known) {
            changed = true;
            emit q->serviceRemoved(service);
        }
        return;
    }
    const auto &target = instance.targets.record()->data.srv;
    service.setHostname(publicName(target.name));
    service.setPort(target.port);
    for (const auto &sighting : instance.sightings) {
        if (cache) {
            cache->see(service.hostname(), sighting.first);
        }
    }
    // Without a record the last attributes stay: the node is disappearing, not changing.
    if (!instance.texts.isEmpty()) {
        service.setAttributes(attributesOf(instance.texts.record()->data.txt.string_list));
    }
    if (known && service != instance.service) {
        instance.service = service;
        changed = true;
        emit q->serviceUpdated(service);
    } else if (!known && instance.sightings[instance.targets.link()].textRead) {
        instance.service = service;
        instance.reported = true;
        changed = true;
        emit q->serviceAdded(service);
    }
}

Browser::Browser(AbstractServer *server, const QByteArray &type, Cache *cache, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<BrowserPrivate>(this, ServerPrivate::of(server), CachePrivate::of(cache),
                                         type))
{
}

Browser::~Browser() = default;

} // namespace QMdnsEngine
