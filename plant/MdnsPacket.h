#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QHostAddress>
#include <QNetworkDatagram>
#include <QNetworkInterface>
#include <QUdpSocket>
#include <QtEndian>

#include <map>
#include <memory>

// Multicast DNS responses that are built byte by byte (RFC 1035, RFC 6762), and a sender that puts
// them on the links of the test network.
namespace Mdns {

inline QByteArray bigEndian(quint32 number, int bytes)
{
    QByteArray raw(4, '\0');
    qToBigEndian(number, raw.data());
    return raw.right(bytes);
}

inline QByteArray label(const QByteArray &text)
{
    return bigEndian(static_cast<quint32>(text.size()), 1) + text;
}

// "cam1.local" in wire form. An instance name may hold dots: put label(instance) before name(type).
inline QByteArray name(const QByteArray &dotted)
{
    QByteArray wire;
    const QByteArrayList parts = dotted.split('.');
    for (const QByteArray &part : parts) {
        wire += label(part);
    }
    return wire + '\0';
}

enum Type { A = 1, CName = 5, Ptr = 12, Txt = 16, Aaaa = 28, Srv = 33, Svcb = 64 };

inline QByteArray question(const QByteArray &owner, Type type)
{
    return owner + bigEndian(type, 2) + bigEndian(1, 2); // the class "Internet"
}

constexpr quint32 hour = 3600;
constexpr quint32 goodbye = 0;

// A response. Each call adds an answer; owner is a name in wire form, ttl is in seconds.
class Packet {
public:
    // Sets the cache-flush bit on all types but PTR: those records belong to one host and replace
    // what was known of it, while several hosts share a PTR record (RFC 6762, 10.2).
    Packet &add(const QByteArray &owner, Type type, const QByteArray &data, quint32 ttl = hour)
    {
        const quint32 recordClass = type == Ptr ? 1 : 0x8001;
        records += owner + bigEndian(type, 2) + bigEndian(recordClass, 2) + bigEndian(ttl, 4)
            + bigEndian(static_cast<quint32>(data.size()), 2) + data;
        ++count;
        return *this;
    }

    // An SRV record. host is dotted; rank has the priority in its upper half, the weight below.
    Packet &target(const QByteArray &owner, const QByteArray &host, quint16 port,
                   quint32 ttl = hour, quint32 rank = 0)
    {
        return add(owner, Srv, bigEndian(rank, 4) + bigEndian(port, 2) + name(host), ttl);
    }

    // A TXT record; without strings it holds one empty string (RFC 6763, 6.1).
    Packet &text(const QByteArray &owner, const QByteArrayList &strings, quint32 ttl = hour)
    {
        QByteArray data;
        for (const QByteArray &string : strings) {
            data += label(string);
        }
        return add(owner, Txt, data.isEmpty() ? QByteArray(1, '\0') : data, ttl);
    }

    // An A or AAAA record for text, an IP address. host is dotted.
    Packet &address(const QByteArray &host, const QString &text, quint32 ttl = hour)
    {
        const QHostAddress ip(text);
        if (ip.protocol() == QAbstractSocket::IPv4Protocol) {
            return add(name(host), A, bigEndian(ip.toIPv4Address(), 4), ttl);
        }
        const Q_IPV6ADDR raw = ip.toIPv6Address();
        return add(name(host), Aaaa, QByteArray(reinterpret_cast<const char *>(&raw), 16), ttl);
    }

    // Adds the answers of another packet.
    Packet &with(const Packet &other)
    {
        records += other.records;
        count += other.count;
        return *this;
    }

    QByteArray bytes() const
    {
        return bigEndian(0x8400, 4) + bigEndian(count, 4) + bigEndian(0, 4) + records;
    }

private:
    QByteArray records;
    quint32 count = 0;
};

inline QHostAddress group(QAbstractSocket::NetworkLayerProtocol protocol)
{
    return QHostAddress(
        QLatin1String(protocol == QAbstractSocket::IPv4Protocol ? "224.0.0.251" : "ff02::fb"));
}

inline std::unique_ptr<QUdpSocket> boundSocket(QAbstractSocket::NetworkLayerProtocol protocol)
{
    auto socket = std::make_unique<QUdpSocket>();
    socket->bind(protocol == QAbstractSocket::IPv4Protocol ? QHostAddress::AnyIPv4
                                                           : QHostAddress::AnyIPv6,
                 5353, QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint);
    return socket;
}

constexpr char nodeType[] = "_nmos-node._tcp.local";

// The full name of a service, in wire form; type is dotted.
inline QByteArray instance(const QByteArray &name, const QByteArray &type = nodeType)
{
    return label(name) + Mdns::name(type);
}

// The pointer from the type to a service of that name.
inline Packet pointer(const QByteArray &instanceName, quint32 ttl = hour,
                      const QByteArray &type = nodeType)
{
    return Packet().add(name(type), Ptr, instance(instanceName, type), ttl);
}

// All that announces a service at "cam1.local"; with the ttl of a goodbye, all that withdraws it.
inline Packet service(const QByteArray &instanceName, const QByteArrayList &strings = {"a=1"},
                      quint32 ttl = hour, quint16 port = 80, const QByteArray &type = nodeType)
{
    return pointer(instanceName, ttl, type)
        .target(instance(instanceName, type), "cam1.local", port, ttl)
        .text(instance(instanceName, type), strings, ttl);
}

inline Packet alias(const QByteArray &owner, const QByteArray &target)
{
    return Packet().add(name(owner), CName, name(target));
}

// The packet with one more question or record. countAt is where in the packet it is counted: 5 for
// questions, 9 for the authority section, 11 for the additional one.
inline QByteArray amended(QByteArray packet, int countAt, const QByteArray &what)
{
    packet[countAt] = 1;
    return countAt == 5 ? packet.insert(12, what) : packet + what;
}

// Hears what is asked on every link over one IP version.
class Listener {
public:
    explicit Listener(
        QAbstractSocket::NetworkLayerProtocol protocol = QAbstractSocket::IPv4Protocol)
        : socket(boundSocket(protocol))
    {
        const auto links = QNetworkInterface::allInterfaces();
        for (const QNetworkInterface &link : links) {
            socket->joinMulticastGroup(group(protocol), link);
        }
    }

    // The addresses that sent queries with these bytes in them so far, from port 5353, in order.
    QStringList askers(const QByteArray &question)
    {
        while (socket->hasPendingDatagrams()) {
            heard += socket->receiveDatagram();
        }
        QStringList addresses;
        for (const QNetworkDatagram &datagram : qAsConst(heard)) {
            const QByteArray packet = datagram.data();
            if (packet.size() > 2 && (packet.at(2) & 0x80) == 0 && packet.contains(question)
                && datagram.senderPort() == 5353) {
                addresses += datagram.senderAddress().toString();
            }
        }
        return addresses;
    }

private:
    std::unique_ptr<QUdpSocket> socket;
    QList<QNetworkDatagram> heard;
};

class Sender {
public:
    // Sends a packet to the multicast DNS group. protocol is the IP version to send over, link the
    // interface to send from. False when the system refused.
    bool send(const QByteArray &packet, const QString &link = QStringLiteral("vx0"),
              QAbstractSocket::NetworkLayerProtocol protocol = QAbstractSocket::IPv4Protocol)
    {
        const bool ip4 = protocol == QAbstractSocket::IPv4Protocol;
        QHostAddress everybody = group(protocol);
        auto &socket = sockets[{link, protocol}];
        if (!socket) {
            socket = boundSocket(protocol);
            socket->setMulticastInterface(QNetworkInterface::interfaceFromName(link));
            socket->setSocketOption(QAbstractSocket::MulticastTtlOption, 255);
        }
        if (!ip4) {
            everybody.setScopeId(link);
        }
        return socket->writeDatagram(packet, everybody, 5353) == packet.size();
    }

private:
    std::map<QPair<QString, int>, std::unique_ptr<QUdpSocket>> sockets;
};

} // namespace Mdns
