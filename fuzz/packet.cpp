// The guard that checks each datagram before Avahi reads it.

#include "PacketGuard.h"
#include "Require.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QVector<PacketGuard::Owner> owners;
    const bool isHarmful = PacketGuard::isHarmful(data, static_cast<qint64>(size), &owners);
    // A packet that is shorter than the DNS header cannot be read.
    require(isHarmful || size >= 12);
    for (const PacketGuard::Owner &owner : owners) {
        // A name in wire form ends with the root, or could not be read.
        require(owner.first.isEmpty() || (owner.first.endsWith('\0') && owner.first.size() < 512));
    }
    return 0;
}
