#pragma once

#include "panel2mqtt/desk/Message.h"
#include "panelfleet/CommandLine.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace Vantor {

// What is flashed: an image of this machine, or files of the hosts.
//
// Threads: a plain value.
struct FleetImage {
    static constexpr std::size_t maxSize = std::size_t{16} << 20;

    Message command;                   // its payload and user properties
    std::optional<std::uint32_t> size; // of an image
    std::string mainSum;               // SHA-256, in lower-case hexadecimal digits; empty: not known
    std::string servoSum;

    // Throws FleetFailure when the file can't be used.
    static FleetImage make(const CommandLine& line);
};

} // namespace Vantor
