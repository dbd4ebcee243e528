#pragma once

#include <cstddef>
#include <cstdint>

namespace Vantor {

// The wire is little-endian and the records below are copied as they stand in memory.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the wire records need a little-endian host");

// Start of every packet, in both directions.
struct __attribute__((packed)) PacketHeader {
    std::uint16_t length;   // bytes of the whole packet, header included
    std::uint16_t count;    // records in the packet
    std::uint32_t deviceId; // 0 from the host; the host stamps its uid into received packets
};

static_assert(sizeof(PacketHeader) == 8);
static_assert(alignof(PacketHeader) == 1);
static_assert(offsetof(PacketHeader, length) == 0);
static_assert(offsetof(PacketHeader, count) == 2);
static_assert(offsetof(PacketHeader, deviceId) == 4);

} // namespace Vantor
