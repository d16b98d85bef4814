#pragma once

#include <QTcpServer>
#include <QTcpSocket>

// Gives every HTTP request the same bytes for an answer, and keeps what it was asked, byte for
// byte. Lives on the thread that makes it, so that thread must run its event loop while it waits.
class RawServer final : public QTcpServer {
public:
    explicit RawServer(const QByteArray &always,
                       const QHostAddress &address = QHostAddress::LocalHost)
        : answer(always)
    {
        connect(this, &QTcpServer::newConnection, this, [this] {
            ++connections;
            QTcpSocket *const socket = nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { serve(socket); });
        });
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

    QByteArray answer; // empty: hangs
    QByteArrayList requests;
    int connections = 0;

private:
    void serve(QTcpSocket *socket)
    {
        // A body of JSON ends its request; it arrives behind its head.
        const QByteArray end = socket->peek(5) == "PATCH" ? "}" : "\r\n\r\n";
        if (socket->peek(socket->bytesAvailable()).endsWith(end)) {
            requests += socket->readAll();
            socket->write(answer);
        }
    }
};

inline QByteArray httpAnswer(const QByteArray &body, const QByteArray &head = "200 OK")
{
    return "HTTP/1.1 " + head + "\r\nContent-Length: " + QByteArray::number(body.size())
        + "\r\n\r\n" + body;
}
