#include "support/RawServer.h"

#include <QSslSocket>

RawServer::RawServer(const QByteArray &always, const QHostAddress &address)
    : answer(always)
{
    listen(address);
}

QString RawServer::host() const
{
    return serverAddress().toString() + QLatin1Char(':') + QString::number(serverPort());
}

QStringList RawServer::requestLines() const
{
    QStringList lines;
    for (const QByteArray &request : requests) {
        lines += QString::fromLatin1(request.left(request.indexOf(" HTTP/")));
    }
    return lines;
}

void RawServer::incomingConnection(qintptr descriptor)
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

void RawServer::reply(QSslSocket *socket)
{
    socket->write(answer);
    if (closes) {
        socket->disconnectFromHost();
    }
}

void RawServer::serve(QSslSocket *socket)
{
    // A body of JSON ends its request; it arrives behind its head.
    const QByteArray end = socket->peek(5) == "PATCH" ? "}" : "\r\n\r\n";
    if (socket->peek(socket->bytesAvailable()).endsWith(end)) {
        requests += socket->readAll();
        answer = answerTo ? answerTo(requests.last()) : answer;
        reply(socket);
    }
}

QByteArray httpAnswer(const QByteArray &body, const QByteArray &head)
{
    return "HTTP/1.1 " + head + "\r\nContent-Length: " + QByteArray::number(body.size())
        + "\r\n\r\n" + body;
}
