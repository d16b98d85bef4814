#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QPair>
#include <QString>

#include <functional>
#include <memory>

struct HttpRequest {
    QByteArray method;
    QString path; // decoded, without the query
    QByteArray target; // as it stood in the request line
    QByteArray body;
    QByteArray contentType;
    QList<QPair<QByteArray, QByteArray>> headers;
};

struct HttpAnswer {
    // How the answer goes on the wire.
    enum class Wire {
        Whole,
        Reset, // a TCP reset and no answer
        Drop, // the end of the connection and no answer
        Truncated, // header, half of the body, the end of the connection
        Dripped, // the body byte by byte
        Flood, // as many bytes of white space as floodBytes says
    };

    int status = 200;
    QByteArray body = {};
    QByteArray contentType = "application/json";
    QList<QPair<QByteArray, QByteArray>> headers = {};
    Wire wire = Wire::Whole;
    int dripMilliseconds = 0;
    qint64 floodBytes = 0; // 0: no end
};

// An HTTP/1.1 server at one address. A connection costs a thread only from its arrival to its end,
// so a thousand idle servers are cheap and a request that hangs holds up no other.
class HttpServer final {
public:
    // Called on the connection's thread, several at a time. A handler may use the server that it is
    // given until it returns.
    using Handler = std::function<HttpAnswer(HttpServer &, const HttpRequest &)>;

    // Listens at once; port 0 takes a free one.
    HttpServer(const QHostAddress &address, quint16 port, const Handler &handler);
    // Ends every connection and waits for their handlers, which no longer pause.
    ~HttpServer();
    Q_DISABLE_COPY_MOVE(HttpServer)

    bool isListening() const;
    quint16 port() const;

    // For handlers: waits that long, or until the server ends.
    void pause(int milliseconds);

    // For handlers: waits until the condition, looked at whenever wake() is called, holds or the
    // server ends. False when the server ends.
    bool waitUntil(const std::function<bool()> &condition);
    void wake();

private:
    struct Private;
    const std::unique_ptr<Private> d;
};
