#include <qmdnsengine/browser.h>

#include "RecordLookup.h"
#include "ServerPrivate.h"

#include <avahi-common/domain.h>

#include <QQueue>
#include <QSet>
#include <QVector>

#include <map>

namespace QMdnsEngine {

namespace {

using Attributes = QMap<QByteArray, QByteArray>;
using Target = QPair<QByteArray, quint16>;

const char browseAll[] = "_services._dns-sd._udp.local.";

// Each type costs queries for as long as the browser lives; a hostile sender can invent any number.
constexpr size_t typeLimit = 1000;
constexpr int typeLength = 255; // RFC 1035, section 2.3.4

// What the links say about one thing. While a change goes through the network they disagree: the
// latest word counts, and when it is taken back, the one before.
template <typename Value>
struct Claims {
    void take(RecordLookup::Event event, Link link, const Value &value)
    {
        claims.removeAll(qMakePair(link, value));
        if (event == RecordLookup::Event::Found) {
            claims.append(qMakePair(link, value));
        }
    }

    QVector<QPair<Link, Value>> claims;
};

struct Instance {
    Service service; // as last reported; before that only name and type
    bool reported = false;
    bool unsettled = false; // waits for its turn in the queue
    bool textRead = false; // the attributes that came with the first answer are in
    QSet<QPair<Link, QByteArray>> pointers; // where one is seen, and under which type or subtype
    Claims<Target> targets;
    Claims<Attributes> texts;
    std::unique_ptr<RecordLookup> targetLookup;
    std::unique_ptr<RecordLookup> textLookup;
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
    }

private:
    using Event = RecordLookup::Event;

    void browse(const QByteArray &type, bool forTypes);
    void onPointer(Event event, const QPair<Link, QByteArray> &pointer, const QByteArray &name);
    void watch(const QByteArray &key, Instance &instance, const QByteArray &name);
    void touch(const QByteArray &key, Instance &instance);
    void settle(const QByteArray &key);

    Browser *q;
    std::shared_ptr<ServerPrivate> server;
    std::map<QByteArray, std::unique_ptr<RecordLookup>> types;
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
        server, type, AVAHI_DNS_TYPE_PTR,
        [this, key, forTypes](Event event, Link link, const AvahiRecord *record) {
            if (!record) {
                return;
            }
            if (!forTypes) {
                onPointer(event, {link, key}, record->data.ptr.name);
            } else if (event == Event::Found) {
                browse(shownName(record->data.ptr.name), false);
            }
        });
}

void BrowserPrivate::onPointer(Event event, const QPair<Link, QByteArray> &pointer,
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
        found->second.service.setName(label);
        found->second.service.setType(shownName(rest));
        watch(key, found->second, name + '.');
    }
    if (event == Event::Found) {
        found->second.pointers.insert(pointer);
    } else {
        found->second.pointers.remove(pointer);
    }
    touch(key, found->second);
}

void BrowserPrivate::watch(const QByteArray &key, Instance &instance, const QByteArray &name)
{
    instance.targetLookup = std::make_unique<RecordLookup>(
        server, name, AVAHI_DNS_TYPE_SRV,
        [this, key, &instance](Event event, Link link, const AvahiRecord *record) {
            if (record) {
                const auto &srv = record->data.srv;
                instance.targets.take(event, link, {shownName(srv.name), srv.port});
                touch(key, instance);
            }
        });
    instance.textLookup = std::make_unique<RecordLookup>(
        server, name, AVAHI_DNS_TYPE_TXT,
        [this, key, &instance](Event event, Link link, const AvahiRecord *record) {
            if (record) {
                instance.texts.take(event, link, attributesOf(record->data.txt.string_list));
            } else {
                instance.textRead = true;
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

void BrowserPrivate::settle(const QByteArray &key)
{
    Instance &instance = instances[key];
    instance.unsettled = false;
    if (!server->avahi) {
        return;
    }
    const bool known = instance.reported;
    const bool seen = !instance.pointers.isEmpty();
    Service service = instance.service;
    if (!seen || instance.targets.claims.isEmpty()) {
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
    service.setHostname(instance.targets.claims.constLast().second.first);
    service.setPort(instance.targets.claims.constLast().second.second);
    // Without a record the last attributes stay: it is a node on its way out, not a change.
    if (!instance.texts.claims.isEmpty()) {
        service.setAttributes(instance.texts.claims.constLast().second);
    }
    if (known && service != instance.service) {
        instance.service = service;
        emit q->serviceUpdated(service);
    } else if (!known && instance.textRead) {
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
