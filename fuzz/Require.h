#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// A fuzz target's claim about what it called. Ends the process when it does not hold, in every kind
// of build.
inline void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}
