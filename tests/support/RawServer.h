#pragma once

#include <QSslConfiguration>
#include <QSslSocket>
#include <QTcpServer>

#include <functional>

// An HTTP server that sends any bytes and keeps what it was asked, byte for byte. Lives on the
// thread that makes it, so that thread must run its event loop while it waits.
class RawServer : public QTcpServer {
public:
    explicit RawServer(const QByteArray &always = {},
                       const QHostAddress &address = QHostAddress::LocalHost)
        : answer(always)
    {
        listen(address);
    }

    QString host() const
    {
        return serverAddress().toString() + QLatin1Char(':') + QString::number(serverPort());
    }

    QStringList requestLines() const
    {
        QStringList lines;
        for (const QByteArray &request : requests) {
            lines += QString::fromLatin1(request.left(request.indexOf(" HTTP/")));
        }
        return lines;
    }

    QByteArray answer; // to every request; empty: hangs
    // Asked for each answer, when set.
    std::function<QByteArray(const QByteArray &request)> answerTo;
    bool closes = false; // ends the connection behind the answer
    QSslConfiguration tls; // null: plain HTTP
    QByteArrayList requests;
    int connections = 0;

protected:
    void incomingConnection(qintptr descriptor) override
    {
        ++connections;
        auto *const socket = new QSslSocket(this);
        socket->setSocketDescriptor(descriptor);
        if (!tls.isNull()) {
            socket->setSslConfiguration(tls);
            socket->startServerEncryption();
        }
        connect(socket, &QSslSocket::readyRead, this, [this, socket] { serve(socket); });
    }

    virtual void reply(QSslSocket *socket)
    {
        socket->write(answer);
        if (closes) {
            socket->disconnectFromHost();
        }
    }

private:
    void serve(QSslSocket *socket)
    {
        // A body of JSON ends its request; it arrives behind its head.
        const QByteArray end = socket->peek(5) == "PATCH" ? "}" : "\r\n\r\n";
        if (socket->peek(socket->bytesAvailable()).endsWith(end)) {
            requests += socket->readAll();
            answer = answerTo ? answerTo(requests.last()) : answer;
            reply(socket);
        }
    }
};

inline QByteArray httpAnswer(const QByteArray &body, const QByteArray &head = "200 OK")
{
    return "HTTP/1.1 " + head + "\r\nContent-Length: " + QByteArray::number(body.size())
        + "\r\n\r\n" + body;
}
