#pragma once

#include <cstdint>
#include <vector>

namespace Vantor {

// The descriptors of a panel: its device descriptor, then its configuration with all
// that belongs to it. No string descriptors.
std::vector<std::uint8_t> makePanelDescriptors(std::uint16_t vendorId, std::uint16_t productId);

} // namespace Vantor
