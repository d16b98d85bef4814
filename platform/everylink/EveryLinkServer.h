#pragma once

#include <qmdnsengine/server.h>

#include <QElapsedTimer>
#include <QList>
#include <QNetworkInterface>
#include <QUdpSocket>

// QMdnsEngine's server, but one that asks on every network interface. The base listens on all
// interfaces but sends to one that the system chooses. A laptop has the office's network beside the
// plant's.
class EveryLinkServer final : public QMdnsEngine::Server {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(EveryLinkServer)

public:
    explicit EveryLinkServer(QObject *parent = nullptr);

    // Sends the message to the multicast DNS group (RFC 6762, section 3) on each interface that is
    // up, is able to multicast, and has an address, over IPv4 and IPv6. What the system refuses is
    // left out: the browser asks again.
    void sendMessageToAll(const QMdnsEngine::Message &message) override;

private:
    void bind(QUdpSocket &socket, const QHostAddress &any);
    void listen(QUdpSocket &socket);

    QElapsedTimer listed;
    QList<QNetworkInterface> links; // asking the system for each question holds up what is heard
    QUdpSocket ip4;
    QUdpSocket ip6;
};
