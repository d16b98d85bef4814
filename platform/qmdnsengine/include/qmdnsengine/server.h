#pragma once

#include <qmdnsengine/abstractserver.h>

#include <memory>

namespace QMdnsEngine {

class ServerPrivate;

// The sockets of multicast DNS (RFC 6762): port 5353 on every multicast interface, IPv4 and IPv6,
// shared with whatever other responders the machine runs. It asks and listens, and publishes
// nothing.
//
// The sockets are open when the constructor returns and closed by the destructor. A server that
// cannot open them emits error once and stays silent. Interfaces that come and go are followed, and
// so are their links: what was heard on an interface is forgotten when its cable is pulled, and
// asked for again when it is back.
//
// What is not heard: a response is dropped as a whole that repeats a question, has authority
// records, none but additional records, an alias record (CNAME) anywhere, or a part that cannot be
// read. A name that is not UTF-8 or holds a NUL byte is never reported.
//
// Everything runs on the event loop of the thread that makes the server; browsers and resolvers
// belong on that thread, too. They may outlive the server: they are quiet from then on.
class Server final : public AbstractServer {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Server)

public:
    explicit Server(QObject *parent = nullptr);
    ~Server() override;

private:
    friend class ServerPrivate;
    std::shared_ptr<ServerPrivate> d;
};

} // namespace QMdnsEngine
