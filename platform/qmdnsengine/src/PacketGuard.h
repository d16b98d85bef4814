#pragma once

#include <QByteArray>
#include <QPair>
#include <QVector>

// Drops datagrams that Avahi must not read.
//
// Avahi follows alias records (CNAME) without a limit: one packet that makes a name an alias of
// itself ends the process with an exhausted stack, and anybody on the network can send it (seen
// with 0.8). DNS-SD has no use for alias records, so a packet that carries one never reaches Avahi.
// Unparsable ones are dropped, too: they may hide an alias.
namespace PacketGuard {

// The name of a record as it stands in a packet, uncompressed and in lower case, and its type.
using Owner = QPair<QByteArray, quint16>;

// Whether a datagram of that size must not reach Avahi. Of one that may, owners gets the records;
// null for nobody who wants them.
bool isHarmful(const uchar *data, qint64 size, QVector<Owner> *owners = nullptr);

// Whether fd is a UDP socket, the kind that is to be guarded.
bool isNameServiceSocket(int fd);

// Gives the socket room for what a whole plant sends at once, as far as the system grants it: some
// thousand datagrams rather than some hundred.
void makeRoom(int fd);

// Takes harmful datagrams away from the head of the socket's queue. Returns whether a harmless one
// is there to be read now, and the owners of its records.
bool admitNext(int fd, QVector<Owner> *owners);

} // namespace PacketGuard
