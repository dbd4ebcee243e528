#pragma once

#include "protocol/DeviceInformation.h"
#include "protocol/FirmwareUpgradeCommand.h"

#include <cstdint>

namespace Vantor {

// A parsed payload. The PacketType handed over with it says which member is
// valid; `bytes` is valid for every type. The payload's length comes with it and
// may exceed sizeof(DataPacketUnion): then the union is a view of the receive
// buffer, and length bytes may be read from &bytes[0] during the callback. A
// shorter payload is followed by zeros up to sizeof(DataPacketUnion).
union __attribute__((packed)) DataPacketUnion {
    DeviceInformation deviceInformation;
    FirmwareUpgradeCommand firmwareUpgradeCommand;
    std::uint8_t bytes[sizeof(DeviceInformation)];
};

static_assert(sizeof(DataPacketUnion) == 83);
static_assert(alignof(DataPacketUnion) == 1);

} // namespace Vantor
