#include "EveryLinkServer.h"

#include <qmdnsengine/dns.h>
#include <qmdnsengine/mdns.h>
#include <qmdnsengine/message.h>

#include <QNetworkDatagram>

namespace {

bool hasAddress(const QNetworkInterface &link, QAbstractSocket::NetworkLayerProtocol protocol)
{
    const auto entries = link.addressEntries();
    for (const QNetworkAddressEntry &entry : entries) {
        if (entry.ip().protocol() == protocol) {
            return true;
        }
    }
    return false;
}

} // namespace

EveryLinkServer::EveryLinkServer(QObject *parent)
    : Server(parent)
{
    bind(ip4, QHostAddress::AnyIPv4);
    bind(ip6, QHostAddress::AnyIPv6);
}

// A question from another port than this one would be answered to the asker alone, and once only
// (RFC 6762, section 6.7). The base's own sockets have it, too. What is sent to this machine alone
// comes to one of the sockets on that port, which may be one of these: it is heard as well.
void EveryLinkServer::bind(QUdpSocket &socket, const QHostAddress &any)
{
    connect(&socket, &QUdpSocket::readyRead, this, [this, &socket] { listen(socket); });
    socket.bind(any, QMdnsEngine::MdnsPort,
                QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint);
    socket.setSocketOption(QAbstractSocket::MulticastTtlOption, 255);
}

void EveryLinkServer::listen(QUdpSocket &socket)
{
    QMdnsEngine::Message message;
    const QNetworkDatagram datagram = socket.receiveDatagram();
    // The base hears what goes to everybody. Twice, a goodbye would bring a service back.
    if (!datagram.destinationAddress().isMulticast()
        && QMdnsEngine::fromPacket(datagram.data(), message)) {
        message.setAddress(datagram.senderAddress());
        message.setPort(static_cast<quint16>(datagram.senderPort()));
        emit messageReceived(message);
    }
}

void EveryLinkServer::sendMessageToAll(const QMdnsEngine::Message &message)
{
    QByteArray packet;
    QMdnsEngine::toPacket(message, packet);
    if (!listed.isValid() || listed.hasExpired(1000)) {
        links = QNetworkInterface::allInterfaces();
        listed.start();
    }
    for (const QNetworkInterface &link : qAsConst(links)) {
        const auto flags = link.flags();
        if (!flags.testFlag(QNetworkInterface::IsRunning)
            || !flags.testFlag(QNetworkInterface::CanMulticast)) {
            continue;
        }
        if (hasAddress(link, QAbstractSocket::IPv4Protocol)) {
            ip4.setMulticastInterface(link);
            ip4.writeDatagram(packet, QMdnsEngine::MdnsIpv4Address, QMdnsEngine::MdnsPort);
        }
        if (hasAddress(link, QAbstractSocket::IPv6Protocol)) {
            QHostAddress group = QMdnsEngine::MdnsIpv6Address;
            group.setScopeId(link.name());
            ip6.setMulticastInterface(link);
            ip6.writeDatagram(packet, group, QMdnsEngine::MdnsPort);
        }
    }
}
