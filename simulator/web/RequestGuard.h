#pragma once

#include "simulator/web/WebAddress.h"

#include <cstdint>
#include <functional>
#include <string>

namespace Vantor {

// Which requests are answered. A page of another origin, open in the same browser, can send
// some; a name that somebody else's DNS makes ours can send all. So the host must be one that
// can't be made ours, what a browser says of the origin must fit, and commands need a token.
//
// Threads: any. Lifetime: stands alone.
class RequestGuard {
public:
    // The value of a header; empty without it.
    using Header = std::function<std::string(const char* name)>;

    RequestGuard(const WebAddress& address, std::uint16_t port);

    // Random, of 32 hexadecimal digits.
    const std::string& getToken() const { return m_token; }

    // Why not; empty when it may be answered.
    std::string refuse(const std::string& path, const Header& header) const;

    // Also for a command.
    std::string refuseCommand(const Header& header) const;

    // Of this machine, as the network may call it; empty when it has none.
    static std::string getHostName();

    static constexpr char tokenHeader[] = "X-Panelsim-Token";

private:
    bool isOurs(const std::string& host) const;

    const bool m_isLoopback;
    const std::uint16_t m_port;
    const std::string m_token;
};

} // namespace Vantor
