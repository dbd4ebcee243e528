#pragma once

#include <cstdint>

namespace Vantor {

// Kind of one record on the wire. Travels as one byte; values 0 to 46 are
// assigned, most of them known only to the application and the panel, and every
// value passes through the library unchanged.
enum class PacketType : std::int32_t {
    DeviceInformation = 0,       // panel to host, payload DeviceInformation
    LcdSlice = 38,               // host to panel, rows of packed pixels
    FirmwareUpgradeCommand = 40, // panel to host, payload FirmwareUpgradeCommand
    EncodedLcdSlice = 46,        // host to panel, rows of run-length words
};

// Number of assigned values: 0 to packetTypeCount - 1.
constexpr std::int32_t packetTypeCount = 47;

} // namespace Vantor
