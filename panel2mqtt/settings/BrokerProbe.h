#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace Vantor {

// Whether anything listens where the broker should be. It says nothing: a broker logs a
// connection that came and went.
//
// Threads: any; blocks, for a name server as long as that takes.
struct BrokerProbe {
    enum class Outcome { Reached, NoSuchName, NotReached };

    Outcome outcome;
    std::string reason; // unless reached

    // Tries the addresses one after the other, `limit` for each.
    static BrokerProbe run(const std::string& address, std::uint16_t port, std::chrono::milliseconds limit);
};

} // namespace Vantor
