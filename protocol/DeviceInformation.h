#pragma once

#include <cstddef>
#include <cstdint>

namespace Vantor {

// What a panel says of itself (type 0). The library reads only maxPacketSize.
struct __attribute__((packed)) DeviceInformation {
    std::uint8_t description[80]; // meaning fixed by the panel's firmware
    std::uint16_t maxPacketSize;  // largest packet the panel accepts, bytes
    std::uint8_t reserved;        // meaning fixed by the panel's firmware
};

static_assert(sizeof(DeviceInformation) == 83);
static_assert(alignof(DeviceInformation) == 1);
static_assert(offsetof(DeviceInformation, description) == 0);
static_assert(offsetof(DeviceInformation, maxPacketSize) == 80);
static_assert(offsetof(DeviceInformation, reserved) == 82);

} // namespace Vantor
