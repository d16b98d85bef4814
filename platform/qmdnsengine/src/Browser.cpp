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

// Avahi asks for a type after 1, 3, 7, ... seconds, in the end once an hour. A node that only
// answers, behind a switch port that opens late, is to be found sooner.
constexpr std::chrono::minutes askAgainAfter{1};
// Within this time the question is sent, and before a second is over Avahi would repeat it.
constexpr std::chrono::milliseconds askAgainFor{500};
// A question whose answer may come to the asker alone (RFC 6762, section 5.4), which spares the
// others on the network the answers of all the nodes that are known. To Avahi it is another
// question than the one it asks ever more rarely: one that is dropped and begun anew goes on as it
// was.
constexpr quint16 answeredToAsker = AVAHI_DNS_CLASS_IN | 0x8000;

// What the links say about one thing, record by record. While a change goes through the network
// they disagree: the latest word counts, and when it is taken back, the one before.
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
    bool unsettled = false; // waits for its turn in the queue
    std::map<Link, Sighting> sightings;
    Claims targets;
    Claims texts;
};

} // namespace

// Avahi's events only change what is known of an instance and put it in a queue. The queue is
// worked off from the event loop when Avahi is at rest: what one packet says makes one signal. Each
// signal is the last thing that is done, so that its receiver may destroy whatever it likes.
class BrowserPrivate final {
    Q_DISABLE_COPY_MOVE(BrowserPrivate)

public:
    BrowserPrivate(Browser *browser, std::shared_ptr<ServerPrivate> onServer,
                   const QByteArray &type)
        : q(browser)
        , server(std::move(onServer))
    {
        if (type.startsWith('_') && type.size() <= typeLength) {
            browse(type, type.toLower() == browseAll);
        }
        auto *const minute = new QTimer(q);
        QObject::connect(minute, &QTimer::timeout, q, [this] { askAgain(); });
        minute->start(askAgainAfter);
    }

private:
    using Event = RecordLookup::Event;

    void browse(const QByteArray &type, bool forTypes);
    void askAgain();
    void onPointer(Event event, Link link, const QByteArray &type, const QByteArray &name);
    void watch(const QByteArray &key, Instance &instance, Link link);
    void touch(const QByteArray &key, Instance &instance);
    void settle(const QByteArray &key);
    static void dropUnseen(Instance &instance);

    Browser *q;
    std::shared_ptr<ServerPrivate> server;
    std::map<QByteArray, std::unique_ptr<RecordLookup>> types;
    std::vector<std::unique_ptr<RecordLookup>> askedAgain;
    std::map<QByteArray, Instance> instances; // by full name, escaped and in lower case
    QQueue<QByteArray> unsettled;
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
                browse(shownName(record->data.ptr.name), false);
            }
        });
}

// The answers come to the lookups of the types: Avahi hands a record to all who want it.
void BrowserPrivate::askAgain()
{
    for (const auto &type : types) {
        askedAgain.push_back(std::make_unique<RecordLookup>(
            server, Question{type.first, AVAHI_DNS_TYPE_PTR, everyLink, answeredToAsker},
            [](Event, Link, const AvahiRecord *) {}));
    }
    QTimer::singleShot(askAgainFor, q, [this] { askedAgain.clear(); });
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
        found->second.service.setType(shownName(rest));
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
    touch(key, instance);
}

void BrowserPrivate::watch(const QByteArray &key, Instance &instance, Link link)
{
    Sighting &sighting = instance.sightings[link];
    sighting.targetLookup = std::make_unique<RecordLookup>(
        server, Question{instance.name, AVAHI_DNS_TYPE_SRV, link},
        [this, key, &instance](Event event, Link where, AvahiRecord *record) {
            if (record) {
                instance.targets.take(event, where, record);
                touch(key, instance);
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
            touch(key, instance);
        });
}

void BrowserPrivate::touch(const QByteArray &key, Instance &instance)
{
    if (!instance.unsettled) {
        instance.unsettled = true;
        unsettled.enqueue(key);
        QMetaObject::invokeMethod(
            q, [this] { settle(unsettled.dequeue()); }, Qt::QueuedConnection);
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

void BrowserPrivate::settle(const QByteArray &key)
{
    Instance &instance = instances[key];
    instance.unsettled = false;
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
        }
        if (known) {
            emit q->serviceRemoved(service);
        }
        return;
    }
    const auto &target = instance.targets.record()->data.srv;
    service.setHostname(shownName(target.name));
    service.setPort(target.port);
    // Without a record the last attributes stay: it is a node on its way out, not a change.
    if (!instance.texts.isEmpty()) {
        service.setAttributes(attributesOf(instance.texts.record()->data.txt.string_list));
    }
    if (known && service != instance.service) {
        instance.service = service;
        emit q->serviceUpdated(service);
    } else if (!known && instance.sightings[instance.targets.link()].textRead) {
        instance.service = service;
        instance.reported = true;
        emit q->serviceAdded(service);
    }
}

Browser::Browser(AbstractServer *server, const QByteArray &type, Cache *, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<BrowserPrivate>(this, ServerPrivate::of(server), type))
{
}

Browser::~Browser() = default;

} // namespace QMdnsEngine
