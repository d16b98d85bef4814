#include <qmdnsengine/resolver.h>

#include "RecordLookup.h"
#include "ServerPrivate.h"

#include <avahi-core/rr.h>

#include <QNetworkInterface>
#include <QQueue>
#include <QSet>
#include <QTimer>
#include <QtEndian>

#include <algorithm>
#include <chrono>
#include <map>
#include <vector>

namespace QMdnsEngine {

namespace {

// In this time Avahi asks four times.
constexpr std::chrono::seconds patience{10};

} // namespace

// Avahi's events only fill a queue. Each address is reported from the event loop when Avahi is at
// rest, and as the last thing that is done, so that the receiver may destroy whatever it likes.
class ResolverPrivate final {
    Q_DISABLE_COPY_MOVE(ResolverPrivate)

public:
    ResolverPrivate(Resolver *resolver, std::shared_ptr<ServerPrivate> onServer,
                    std::shared_ptr<CachePrivate> sharedCache, const QByteArray &hostName)
        : q(resolver)
        , server(std::move(onServer))
        , cache(std::move(sharedCache))
        , name(hostName)
    {
        QSet<Link> links{everyLink};
        if (cache) {
            cache->resolvers.insert(name.toLower(), this);
            links = cache->links.value(name.toLower(), links);
        }
        for (const Link &link : qAsConst(links)) {
            ask(link);
        }
    }

    ~ResolverPrivate()
    {
        if (cache) {
            cache->resolvers.remove(name.toLower(), this);
        }
    }

    // Asks for the addresses on a link, once.
    void ask(Link link)
    {
        if (lookups.count(everyLink) > 0 || lookups.count(link) > 0) {
            return;
        }
        for (const quint16 type : {AVAHI_DNS_TYPE_A, AVAHI_DNS_TYPE_AAAA}) {
            lookups[link].push_back(
                std::make_unique<RecordLookup>(server, Question{name, type, link}, handler()));
        }
        if (link != everyLink) {
            QTimer::singleShot(patience, q, [this, link] { giveUp(lookups[link]); });
        }
    }

private:
    using Lookups = std::vector<std::unique_ptr<RecordLookup>>;

    RecordLookup::Handler handler();
    static void giveUp(const Lookups &ofOneLink);
    void take(const QHostAddress &address);
    void report();

    Resolver *q;
    std::shared_ptr<ServerPrivate> server;
    std::shared_ptr<CachePrivate> cache;
    QByteArray name;
    std::map<Link, Lookups> lookups;
    QSet<QString> known;
    QQueue<QHostAddress> unsent;
};

RecordLookup::Handler ResolverPrivate::handler()
{
    return [this](RecordLookup::Event event, Link link, AvahiRecord *record) {
        if (event != RecordLookup::Event::Found) {
            return;
        }
        if (record->key->type == AVAHI_DNS_TYPE_A) {
            take(QHostAddress(qFromBigEndian(record->data.a.address.address)));
            return;
        }
        QHostAddress address(record->data.aaaa.address.address);
        if (address.isLinkLocal()) {
            address.setScopeId(QNetworkInterface::interfaceNameFromIndex(link.first));
        }
        take(address);
    };
}

// Most hosts have addresses of one IP version only.
void ResolverPrivate::giveUp(const Lookups &ofOneLink)
{
    const auto isAnswered = [](const auto &lookup) {
        return lookup->isAnswered();
    };
    if (std::any_of(ofOneLink.begin(), ofOneLink.end(), isAnswered)) {
        for (const auto &lookup : ofOneLink) {
            if (!lookup->isAnswered()) {
                lookup->rest();
            }
        }
    }
}

void ResolverPrivate::take(const QHostAddress &address)
{
    // As text, for the scope counts: addresses compare equal without regard to it.
    if (known.contains(address.toString())) {
        return;
    }
    known.insert(address.toString());
    unsent.enqueue(address);
    QMetaObject::invokeMethod(
        q, [this] { report(); }, Qt::QueuedConnection);
}

void ResolverPrivate::report()
{
    const QHostAddress address = unsent.dequeue();
    if (server->avahi) {
        emit q->resolved(address);
    }
}

void CachePrivate::see(const QByteArray &host, Link link)
{
    QSet<Link> &known = links[host.toLower()];
    if (!known.contains(link)) {
        known.insert(link);
        const auto waiting = resolvers.values(host.toLower());
        for (ResolverPrivate *const resolver : waiting) {
            resolver->ask(link);
        }
    }
}

Resolver::Resolver(AbstractServer *server, const QByteArray &name, Cache *cache, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<ResolverPrivate>(this, ServerPrivate::of(server), CachePrivate::of(cache),
                                          name))
{
}

Resolver::~Resolver() = default;

} // namespace QMdnsEngine
