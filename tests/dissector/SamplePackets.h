#pragma once

#include "tests/support/Bytes.h"

#include <cstdint>

namespace Vantor {

constexpr std::uint8_t panel = 2; // its device number

// A record of type 5 with AA BB.
inline const Bytes good{13, 0, 1, 0, 0, 0, 0, 0, 5, 2, 0, 0xAA, 0xBB};

// A packet with one record.
inline Bytes oneRecord(std::uint8_t type, const Bytes& payload)
{
    Bytes packet(11);
    put(packet, 0, static_cast<std::uint32_t>(0x10000 + 11 + payload.size()));
    packet[8] = type;
    packet[9] = static_cast<std::uint8_t>(payload.size());
    packet[10] = static_cast<std::uint8_t>(payload.size() >> 8);
    packet.insert(packet.end(), payload.begin(), payload.end());
    return packet;
}

} // namespace Vantor
