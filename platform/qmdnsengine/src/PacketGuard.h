#pragma once

#include <QtGlobal>

// Stands between the network and Avahi's packet handling.
//
// Avahi follows alias records (CNAME) without a limit: one packet that makes a name an alias of
// itself ends the process with an exhausted stack, and anybody on the network can send it (seen
// with 0.8). DNS-SD has no use for alias records, so a packet that carries one never reaches Avahi;
// nor does one that cannot be read to its end, since nobody can tell what it carries.
namespace PacketGuard {

// Whether a datagram of that size must not reach Avahi.
bool isHarmful(const uchar *data, qint64 size);

// Whether fd is a UDP socket, the kind that is to be guarded.
bool isNameServiceSocket(int fd);

// Gives the socket room for what a whole plant sends at once, as far as the system grants it: some
// thousand datagrams rather than some hundred.
void makeRoom(int fd);

// Takes harmful datagrams away from the head of the socket's queue. Returns whether a harmless one
// is there to be read now.
bool admitNext(int fd);

} // namespace PacketGuard
