#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Vantor {

// Where the page is served: what --web says.
struct WebAddress {
    std::string address = "127.0.0.1"; // numeric
    std::uint16_t port = 0;            // 0: one that is free

    bool isLoopback() const;

    // As it stands in an URL, with this port.
    std::string format(std::uint16_t chosenPort) const;
};

struct ParsedWebAddress {
    WebAddress address;
    std::string error; // empty when all is well
};

// "", "8080", "0.0.0.0:8080", "[::1]:8080", "[::]:0".
ParsedWebAddress parseWebAddress(std::string_view text);

// Whether it is an IP address in figures, one of version 6 without brackets.
bool isIpAddress(const std::string& text);

} // namespace Vantor
