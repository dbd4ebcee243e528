#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Vantor {

// The descriptors of a panel: its device descriptor, then its configuration with all
// that belongs to it. The device names itself in the strings below.
std::vector<std::uint8_t> makePanelDescriptors(std::uint16_t vendorId, std::uint16_t productId);

// Whether bytes are what makePanelDescriptors makes, of whatever panel: a device descriptor
// with the product id of panels, its only configuration, whole and with number 1, interface
// 0 first, and the bulk endpoints of a panel.
bool arePanelDescriptors(const std::vector<std::uint8_t>& bytes);

namespace PanelStrings {
constexpr char manufacturer[] = "panelsim";
constexpr char product[] = "Simulated panel";
} // namespace PanelStrings

// String descriptor `index` of a panel: 0 the languages, 1 the manufacturer, 2 the
// product; empty when there is none.
std::vector<std::uint8_t> makePanelString(std::uint8_t index);

// What a string descriptor says: without what is not ASCII, and only whole characters.
std::string readPanelString(const std::vector<std::uint8_t>& descriptor);

} // namespace Vantor
