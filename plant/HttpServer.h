#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QPair>
#include <QString>

#include <functional>
#include <memory>

struct HttpRequest {
    QString method;
    QString path; // with the query, as it stood in the request line
    QString resource; // the path decoded, without the query
    QByteArray body;
    QList<QPair<QByteArray, QByteArray>> headers; // in no particular order, names as sent
};

struct HttpAnswer {
    // How the answer goes on the wire.
    enum class Wire {
        Whole,
        Reset, // a TCP reset and no answer
        Drop, // the end of the connection and no answer
        Flood, // as many bytes of white space as floodBytes says in place of the body
    };

    int status = 200;
    QByteArray body = {};
    QByteArray contentType = "application/json";
    QList<QPair<QByteArray, QByteArray>> headers = {};
    Wire wire = Wire::Whole;
    qint64 floodBytes = 0; // 0: no Content-Length and no end
};

// An HTTP/1.1 server at one address. A connection costs a thread only from its arrival to its end,
// so a thousand idle servers are cheap and a request that hangs holds up no other. A connection
// ends when its peer is silent, or takes nothing, for five seconds.
class HttpServer final {
public:
    // Called on the connection's thread, several at a time.
    using Handler = std::function<HttpAnswer(const HttpRequest &)>;

    // Listens at once; port 0 takes a free one.
    HttpServer(const QHostAddress &address, quint16 port, const Handler &handler);
    // Ends every connection and waits until the handlers have returned.
    ~HttpServer();
    Q_DISABLE_COPY_MOVE(HttpServer)

    // The port that it listens at; 0 when it cannot listen there.
    quint16 port() const;

private:
    struct Private;
    const std::unique_ptr<Private> d;
};
