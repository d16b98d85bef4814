#include "PacketGuard.h"

#include <QtEndian>
#include <QtGlobal>

#include <array>

#include <sys/socket.h>

namespace {

constexpr quint16 aliasType = 5;
constexpr int headerSize = 12;
constexpr int nameSize = 255; // RFC 1035, section 2.3.4

// Reads a DNS message (RFC 1035, section 4.1) record by record.
class Reader {
public:
    Reader(const uchar *data, qint64 size)
        : begin(data)
        , at(data)
        , end(data + size)
    {
    }

    bool skip(qint64 count)
    {
        if (end - at < count) {
            return false;
        }
        at += count;
        return true;
    }

    bool read(quint16 &number)
    {
        const uchar *const from = at;
        if (!skip(2)) {
            return false;
        }
        number = qFromBigEndian<quint16>(from);
        return true;
    }

    bool skipName()
    {
        while (at < end) {
            const uchar length = *at;
            if (length >= 0xc0) {
                return skip(2);
            }
            if (length >= 0x40 || !skip(1 + length)) {
                return false;
            }
            if (length == 0) {
                return true;
            }
        }
        return false;
    }

    // The name that begins here, uncompressed. Each pointer leads further back, so it ends; it has
    // no more parts than a name can have, so that a packet full of pointers costs no time.
    QByteArray name() const
    {
        QByteArray wire;
        const uchar *limit = at;
        const uchar *from = at;
        for (int parts = 0; parts < nameSize && from < end && wire.size() < nameSize; ++parts) {
            const uchar length = *from;
            if (length < 0x40) {
                if (end - from <= length) {
                    break;
                }
                wire.append(reinterpret_cast<const char *>(from), 1 + length);
                if (length == 0) {
                    return wire;
                }
                from += 1 + length;
                continue;
            }
            if (length < 0xc0 || end - from < 2 || begin + offset(from) >= limit) {
                break;
            }
            from = limit = begin + offset(from);
        }
        return {};
    }

    bool skipRecord(quint16 &type)
    {
        quint16 size = 0;
        return skipName() && read(type) && skip(2 + 4) && read(size) && skip(size);
    }

private:
    static int offset(const uchar *pointer)
    {
        return qFromBigEndian<quint16>(pointer) & 0x3fff;
    }

    const uchar *begin;
    const uchar *at;
    const uchar *end;
};

} // namespace

bool PacketGuard::isHarmful(const uchar *data, qint64 size, QVector<Owner> *owners)
{
    Reader reader(data, size);
    std::array<quint16, 4> counts{};
    bool readable = size >= headerSize && reader.skip(4);
    for (quint16 &count : counts) {
        readable = readable && reader.read(count);
    }
    for (int i = 0; readable && i < counts[0]; ++i) {
        readable = reader.skipName() && reader.skip(4);
    }
    const int records = counts[1] + counts[2] + counts[3];
    for (int i = 0; readable && i < records; ++i) {
        Owner owner;
        if (owners) {
            owner.first = reader.name().toLower();
        }
        readable = reader.skipRecord(owner.second);
        if (owner.second == aliasType) {
            return true;
        }
        if (owners) {
            owners->append(owner);
        }
    }
    return !readable;
}

bool PacketGuard::isNameServiceSocket(int fd)
{
    int domain = 0;
    socklen_t size = sizeof domain;
    return getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0
        && (domain == AF_INET || domain == AF_INET6);
}

void PacketGuard::makeRoom(int fd)
{
    const int bytes = 1024 * 1024;
    // SO_RCVBUFFORCE exceeds the limit but needs privileges.
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0) {
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    }
}

bool PacketGuard::admitNext(int fd, QVector<Owner> *owners)
{
    // As large as a datagram can be.
    static std::array<uchar, 0x10000> packet;
    // Bounded: a flood must not block the event loop.
    for (int discarded = 0; discarded < 64; ++discarded) {
        const ssize_t size = recv(fd, packet.data(), packet.size(), MSG_PEEK | MSG_DONTWAIT);
        owners->clear();
        if (size < 0 || !isHarmful(packet.data(), size, owners)) {
            return size >= 0;
        }
        recv(fd, packet.data(), packet.size(), MSG_DONTWAIT);
    }
    return false;
}
