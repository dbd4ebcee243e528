#pragma once

#include "tests/support/Bytes.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Vantor {

// A header of USB/IP, written as its twelve big-endian words.
inline Bytes usbIpHeader(std::vector<std::uint32_t> words)
{
    words.resize(12);
    Bytes bytes;
    for (const std::uint32_t word : words)
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes.push_back(static_cast<std::uint8_t>(word >> shift));
    return bytes;
}

} // namespace Vantor
