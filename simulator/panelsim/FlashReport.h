#pragma once

#include "simulator/panel/BootLoader.h"

#include <string>
#include <vector>

namespace Vantor {

// What upgrades have made of a panel, for people: a line for each MCU that was to get an
// image, "main MCU: 12000 bytes, verified", "… incomplete, 8192 of 12000 bytes" or
// "… 12000 bytes, does not match its CRC".
std::vector<std::string> describeUpgrades(const BootLoader::Flash& flash);

} // namespace Vantor
