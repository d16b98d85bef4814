#pragma once

#include <QHostAddress>
#include <QObject>

#include <memory>

namespace QMdnsEngine {

class AbstractServer;
class Cache;
class ResolverPrivate;

// Finds the IPv4 and IPv6 addresses of one host, and goes on listening for further ones as long as
// it lives.
class Resolver final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Resolver)

public:
    // name is a host name as Service::hostname gives it: "cam1.local."; a malformed one resolves to
    // nothing. With the cache of a Browser that has reported a service of that host, the addresses
    // are asked for on the links where the service is seen; without, on every link.
    Resolver(AbstractServer *server, const QByteArray &name, Cache *cache = nullptr,
             QObject *parent = nullptr);
    ~Resolver() override;

Q_SIGNALS:
    // Once for each distinct address, from the event loop, never from inside the constructor, also
    // for what the server knows already. A link-local IPv6 address carries the name of the
    // interface it was heard on as its scope; it is an address of its own for each such interface.
    // The resolver, its server and its cache may be destroyed from inside this signal.
    void resolved(const QHostAddress &address);

private:
    std::unique_ptr<ResolverPrivate> d;
};

} // namespace QMdnsEngine
