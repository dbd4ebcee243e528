#pragma once

#include "protocol/PacketType.h"

// What a panel's firmware fixes and the library never looks at.
namespace Vantor::WireFormat {

// Placeholders until the firmware's own values are known.
constexpr PacketType reqDeviceInfoType = static_cast<PacketType>(1);
constexpr PacketType firmwareUpgradeRequestType = static_cast<PacketType>(41);
constexpr PacketType firmwareDataType = static_cast<PacketType>(44);

// Placeholder: a record's checksum is the sum of the bytes before its checksum
// field, modulo 2^32. An image's CRC-32 is zlib's (polynomial 0x04C11DB7,
// reflected, initial value and final XOR 0xFFFFFFFF).

} // namespace Vantor::WireFormat
