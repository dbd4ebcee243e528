#pragma once

#include <cstdint>
#include <vector>

namespace Vantor {

// The descriptors of a panel: its device descriptor, then its configuration with all
// that belongs to it. The device names itself in the strings below.
std::vector<std::uint8_t> makePanelDescriptors(std::uint16_t vendorId, std::uint16_t productId);

namespace PanelStrings {
constexpr char manufacturer[] = "panelsim";
constexpr char product[] = "Simulated panel";
} // namespace PanelStrings

// String descriptor `index` of a panel: 0 the languages, 1 the manufacturer, 2 the
// product; empty when there is none.
std::vector<std::uint8_t> makePanelString(std::uint8_t index);

} // namespace Vantor
