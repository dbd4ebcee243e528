#pragma once

#include <cstdint>

namespace Vantor {

// How a panel presents itself on the bus, and how large a packet it takes. Shared by the library and whatever
// plays a panel, so that neither repeats a value of the other.
namespace PanelLink {
constexpr std::uint16_t developmentVendorId = 0xDEAD;
constexpr std::uint16_t productId = 0xBEEF; // of development and production panels alike
constexpr int interfaceNumber = 0;
constexpr std::uint8_t outEndpoint = 0x02; // bulk, records to the panel
constexpr std::uint8_t inEndpoint = 0x81;  // bulk, packets from the panel

// Packet limit in bytes, header included, until a panel announces one above the floor.
constexpr std::uint16_t initialPacketLimit = 1100;
constexpr std::uint16_t packetLimitFloor = 1024;
} // namespace PanelLink

} // namespace Vantor
