#pragma once

#include <qmdnsengine/service.h>

#include <QObject>

#include <memory>

namespace QMdnsEngine {

class AbstractServer;
class BrowserPrivate;
class Cache;

// Finds the services of one type (RFC 6763, section 4): asks when it is made and when a link comes
// up, and ever more rarely afterwards. In between it asks once more, so that nothing is missed that
// only answers and could not be heard before, for example behind a switch port that opens late:
// after a minute, and each minute while services come, change or go; otherwise at intervals that
// double up to four minutes, because every node answers. What is known already is not reported
// again. Host name, port and attributes of a service are asked for on the links where it is seen,
// and only while they are missing or about to expire.
//
// A service that is seen on several interfaces, or over IPv4 and IPv6, is one service. All signals
// come from the event loop, never from inside the constructor, also for what the server knows
// already. The browser, its server and its cache may be destroyed from inside any of them.
class Browser final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Browser)

public:
    // type has its domain and a trailing dot: "_nmos-node._tcp.local.";
    // "_services._dns-sd._udp.local." stands for the services of every type that is announced. A
    // malformed type finds nothing. A cache may be given or left out.
    Browser(AbstractServer *server, const QByteArray &type, Cache *cache = nullptr,
            QObject *parent = nullptr);
    ~Browser() override;

Q_SIGNALS:
    // Once for each service, as soon as its host name and port are known, with its attributes when
    // they are known by then: those of the same answer always are. A service without a TXT record
    // is reported without attributes.
    void serviceAdded(const QMdnsEngine::Service &service);
    // Host name, port or attributes of a service that was reported changed, or its attributes came
    // later; at most once for what one packet says.
    void serviceUpdated(const QMdnsEngine::Service &service);
    // A reported service said goodbye or expired on every interface where it was seen; service is
    // as it was last reported. If it comes back it is added anew.
    void serviceRemoved(const QMdnsEngine::Service &service);

private:
    std::unique_ptr<BrowserPrivate> d;
};

} // namespace QMdnsEngine
