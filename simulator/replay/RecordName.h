#pragma once

#include "protocol/PacketType.h"

#include <chrono>
#include <string>

namespace Vantor {

// "type 41 (FirmwareUpgradeRequest)", or "type 5" of one that has no name.
std::string nameOfType(PacketType type);

// Of a host, which a panel answers by itself.
bool isRequest(PacketType type);

// "0.250 s"
std::string nameOfTime(std::chrono::nanoseconds time);

// Of an LCD picture, of either type.
bool isSlice(PacketType type);

} // namespace Vantor
