#pragma once

#include "protocol/DeviceInformation.h"
#include "protocol/FirmwareUpgradeCommand.h"

#include <cstdint>

namespace Vantor {

// A parsed payload. The PacketType handed over with it says which member is
// valid. The payload's length comes with it and may exceed sizeof(DataPacketUnion):
// then the union is a view of the receive buffer, whose bytes `payloadOf` reaches.
// A shorter payload is followed by zeros up to sizeof(DataPacketUnion).
//
// 83 bytes, as its members are the records that the library reads; all others only pass
// through. A member for each would have every record copied into room for the largest.
union __attribute__((packed)) DataPacketUnion {
    DeviceInformation deviceInformation;
    FirmwareUpgradeCommand firmwareUpgradeCommand;
    std::uint8_t bytes[sizeof(DeviceInformation)];
};

static_assert(sizeof(DataPacketUnion) == 83);
static_assert(alignof(DataPacketUnion) == 1);

// The payload of any type: as many bytes as the length that came with it, during the
// callback. By way of the object's address, as `bytes` ends after the union's own size and
// to index past that is undefined.
inline const std::uint8_t* payloadOf(const DataPacketUnion& data)
{
    return reinterpret_cast<const std::uint8_t*>(&data);
}

} // namespace Vantor
