#include <qmdnsengine/resolver.h>

#include "RecordLookup.h"
#include "ServerPrivate.h"

#include <avahi-core/rr.h>

#include <QNetworkInterface>
#include <QQueue>
#include <QSet>
#include <QtEndian>

namespace QMdnsEngine {

// Avahi's events only fill a queue. Each address is reported from the event loop when Avahi is at
// rest, and as the last thing that is done, so that the receiver may destroy whatever it likes.
class ResolverPrivate final {
    Q_DISABLE_COPY_MOVE(ResolverPrivate)

public:
    ResolverPrivate(Resolver *resolver, std::shared_ptr<ServerPrivate> onServer,
                    const QByteArray &name)
        : q(resolver)
        , server(std::move(onServer))
        , ip4(server, {name, AVAHI_DNS_TYPE_A}, handler())
        , ip6(server, {name, AVAHI_DNS_TYPE_AAAA}, handler())
    {
    }

private:
    RecordLookup::Handler handler();
    void take(const QHostAddress &address);
    void report();

    Resolver *q;
    std::shared_ptr<ServerPrivate> server;
    RecordLookup ip4;
    RecordLookup ip6;
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

Resolver::Resolver(AbstractServer *server, const QByteArray &name, Cache *, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<ResolverPrivate>(this, ServerPrivate::of(server), name))
{
}

Resolver::~Resolver() = default;

} // namespace QMdnsEngine
