#pragma once

#include "protocol/PacketType.h"

#include <map>

namespace Vantor {

// The types of records that mean something to the simulated panel, as its users call them.
const std::map<PacketType, const char*>& getRecordNames();

} // namespace Vantor
