#pragma once

#include "protocol/PacketType.h"

#include <string>

namespace Vantor {

// "type 41 (FirmwareUpgradeRequest)", or "type 5" of one that has no name.
std::string nameOfType(PacketType type);

// Of an LCD picture, of either type.
bool isSlice(PacketType type);

} // namespace Vantor
