#include "PacketGuard.h"

#include <QtEndian>
#include <QtGlobal>

#include <array>

#include <sys/socket.h>

namespace {

constexpr quint16 aliasType = 5;
constexpr int headerSize = 12;

// Reads a DNS message (RFC 1035, section 4.1) record by record.
class Reader {
public:
    Reader(const uchar *data, qint64 size)
        : at(data)
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

    bool skipRecord(quint16 &type)
    {
        quint16 size = 0;
        return skipName() && read(type) && skip(2 + 4) && read(size) && skip(size);
    }

private:
    const uchar *at;
    const uchar *end;
};

} // namespace

bool PacketGuard::isHarmful(const uchar *data, qint64 size)
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
        quint16 type = 0;
        readable = reader.skipRecord(type);
        if (type == aliasType) {
            return true;
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
    // Beyond the system's limit where the process may, else up to it.
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0) {
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    }
}

bool PacketGuard::admitNext(int fd)
{
    // As large as a datagram can be.
    static std::array<uchar, 0x10000> packet;
    // Not without end: whoever floods the network must not hold the event loop.
    for (int discarded = 0; discarded < 64; ++discarded) {
        const ssize_t size = recv(fd, packet.data(), packet.size(), MSG_PEEK | MSG_DONTWAIT);
        if (size < 0 || !isHarmful(packet.data(), size)) {
            return size >= 0;
        }
        recv(fd, packet.data(), packet.size(), MSG_DONTWAIT);
    }
    return false;
}
