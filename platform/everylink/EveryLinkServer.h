#pragma once

#include <qmdnsengine/server.h>

#include <QUdpSocket>

// QMdnsEngine's server, but one that asks on every network interface. By itself it listens on all
// of them and leaves it to the system where a question goes: to one interface, whichever that is. A
// laptop has the office's network beside the plant's.
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
    static void bind(QUdpSocket &socket, const QHostAddress &any);

    QUdpSocket ip4;
    QUdpSocket ip6;
};
