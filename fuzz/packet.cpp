// The guard that checks each datagram before Avahi reads it.

#include "PacketGuard.h"
#include "Require.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const bool isHarmful = PacketGuard::isHarmful(data, static_cast<qint64>(size));
    // A packet that is shorter than the DNS header cannot be read.
    require(isHarmful || size >= 12);
    return 0;
}
