#pragma once

#include "net/Descriptors.h"

#include <QHash>
#include <QObject>
#include <QQueue>
#include <QUrl>

#include <functional>

class QNetworkReply;

// Starts requests in order, and not too many at once: when a plant is switched on, a thousand nodes
// are announced within a second, and each connection takes a descriptor of the process.
//
// At most 64 requests count as running. One that has not ended a second after its start goes on but
// no longer counts, so hanging nodes delay the others by one second for every 64. Running and
// continuing requests together have at most a maximum of connections; beyond that, new ones wait.
//
// What counts are connections: Qt opens six to one scheme, host and port and keeps further requests
// back until one of them is free. So these start at once, and a node that hangs takes no more than
// six, however often it is asked. Not counted is a connection that has failed: Qt keeps its
// descriptor for two more minutes.
class RequestGate final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(RequestGate)

public:
    // Sends the request. Called once, from enqueue() or from the event loop.
    using Begin = std::function<QNetworkReply *()>;

    // limit: of connections. By default half of the descriptors that the process may have open.
    explicit RequestGate(int limit = Descriptors::limit() / 2);

    // url: what begin will request.
    void enqueue(const QUrl &url, const Begin &begin);
    // Drops the requests that have not begun.
    void clear();

private:
    struct Request {
        QUrl origin; // scheme, host and port
        Begin begin;
    };

    bool waitsInQt(const QUrl &origin) const;
    void beginNext();
    void watch(const QUrl &origin, QNetworkReply *reply);

    const int maximum;
    QQueue<Request> waiting;
    QHash<QUrl, int> begun; // and not ended
    int connected = 0; // of those, the ones that have a connection
    int running = 0; // of those, the ones that began within the last second
};
