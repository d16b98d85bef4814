// Datagrams from the network, as the guard before Avahi reads them.

#include "PacketGuard.h"
#include "Require.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const bool isHarmful = PacketGuard::isHarmful(data, static_cast<qint64>(size));
    // Without its end a header cannot be read.
    require(isHarmful || size >= 12);
    return 0;
}
