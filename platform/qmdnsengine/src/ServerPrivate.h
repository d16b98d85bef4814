#pragma once

#include "AvahiQtPoll.h"

#include <avahi-core/core.h>

#include <QSet>
#include <QString>

#include <memory>

namespace QMdnsEngine {

class AbstractServer;
class RecordLookup;

// Avahi's stack and the lookups that run on it. Browsers and resolvers share it with their server;
// once the server has closed it, it is an empty shell.
class ServerPrivate final {
    Q_DISABLE_COPY_MOVE(ServerPrivate)

public:
    ServerPrivate();
    ~ServerPrivate();

    // What stands behind a server; null if there is nothing.
    static std::shared_ptr<ServerPrivate> of(AbstractServer *server);

    // Ends all lookups and gives the sockets back.
    void close();

    AvahiQtPoll poll;
    AvahiServer *avahi = nullptr; // null: closed, or never opened
    QString failure; // why it was never opened
    QSet<RecordLookup *> lookups;
};

} // namespace QMdnsEngine
