#pragma once

#include "tests/support/Bytes.h"

#include <cstddef>
#include <cstdint>

namespace Vantor {

// Payload of the record number `number` that a test sends, known to both ends: the
// number in four bytes, little-endian, then bytes that count up from its low byte.
inline Bytes testPayload(std::uint32_t number, std::size_t size)
{
    Bytes payload(size);
    for (std::size_t i = 0; i < size; ++i)
        payload[i] = static_cast<std::uint8_t>(i < 4 ? number >> (8 * i) : number + i);
    return payload;
}

} // namespace Vantor
