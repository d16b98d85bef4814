#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>

#include <memory>

// A Node API as it is announced: a DNS-SD service (RFC 6763) of the type _nmos-node._tcp.
struct Announcement {
    QByteArray instance; // UTF-8, at most 63 bytes of any kind but NUL, no escapes
    QByteArray hostName = "plant"; // one label; ".local" is added
    QList<QHostAddress> addresses = {}; // the host's A and AAAA records, withdrawn with the service
    quint16 port = 0;
    // The strings of the TXT record, each of at most 255 bytes, in this order.
    QList<QByteArray> txt = {"api_proto=http", "api_ver=v1.0,v1.1,v1.2,v1.3", "api_auth=false",
                             "pri=100"};
    bool hasTxt = true; // false: no TXT record at all, as with some devices
};

// Announces services by multicast DNS (RFC 6762) on every interface, from a thread of its own;
// needs no event loop. Several may run side by side in one process and beside any other mDNS
// responder of the machine. Its members are for one thread at a time.
//
// A service is announced about a second after the call, when its name has been probed for. A name
// that another responder owns is not announced.
class Announcer final {
public:
    Announcer();
    // Sends goodbyes for all that is still announced.
    ~Announcer();
    Q_DISABLE_COPY_MOVE(Announcer)

    // Drops the lines that Avahi writes to standard error about interfaces and neighbours, for all
    // users of Avahi in this process.
    static void silenceAvahi();

    // False when the sockets could not be opened; then nothing is announced.
    bool isRunning() const;

    // Announces a service and its host's addresses. False when it cannot be (a service already
    // announced here, a name that is not valid).
    bool announce(const Announcement &announcement);

private:
    struct Private;
    const std::unique_ptr<Private> d;
};
