#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Vantor {

// Where the parser stopped in a received buffer, and why. It tells nobody; but what it has
// delivered is known, and the buffer can be walked as it does.
struct Malformation {
    std::size_t offset; // of the packet or record that is wrong; from there on nothing was delivered
    const char* kind;   // for programs, see docs/json.md
    std::string text;   // "a record of type 5 with 9 bytes where 1 is left"

    // Nothing when so many records are all that the buffer holds.
    static std::optional<Malformation> find(const std::vector<std::uint8_t>& buffer, std::size_t delivered);
};

} // namespace Vantor
