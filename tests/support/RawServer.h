#pragma once

#include <QSslConfiguration>
#include <QTcpServer>

#include <functional>

class QSslSocket;

// An HTTP server that sends any bytes and keeps what it was asked, byte for byte. Lives on the
// thread that makes it, so that thread must run its event loop while it waits.
class RawServer : public QTcpServer {
public:
    explicit RawServer(const QByteArray &always = {},
                       const QHostAddress &address = QHostAddress::LocalHost);

    QString host() const;
    QStringList requestLines() const;

    QByteArray answer; // to every request; empty: hangs
    // Asked for each answer, when set.
    std::function<QByteArray(const QByteArray &request)> answerTo;
    bool closes = false; // ends the connection behind the answer
    QSslConfiguration tls; // null: plain HTTP
    QByteArrayList requests;
    int connections = 0;

protected:
    void incomingConnection(qintptr descriptor) override;
    virtual void reply(QSslSocket *socket);

private:
    void serve(QSslSocket *socket);
};

QByteArray httpAnswer(const QByteArray &body, const QByteArray &head = "200 OK");
