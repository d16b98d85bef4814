#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// Ends the process when a condition does not hold, also in builds without assertions.
inline void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}
