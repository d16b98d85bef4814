#include "EveryLinkServer.h"

#include <qmdnsengine/dns.h>
#include <qmdnsengine/mdns.h>
#include <qmdnsengine/message.h>

#include <QNetworkInterface>

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
// (RFC 6762, section 6.7). The base's own sockets have it, too, and go on listening.
void EveryLinkServer::bind(QUdpSocket &socket, const QHostAddress &any)
{
    socket.bind(any, QMdnsEngine::MdnsPort,
                QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint);
    socket.setSocketOption(QAbstractSocket::MulticastTtlOption, 255);
}

void EveryLinkServer::sendMessageToAll(const QMdnsEngine::Message &message)
{
    QByteArray packet;
    QMdnsEngine::toPacket(message, packet);
    const auto links = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface &link : links) {
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
