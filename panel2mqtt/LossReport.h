#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace Vantor {

// When the log says that something was lost, and how: at once, then a line a minute and, while
// it goes on, one an hour in the end. Without this losses would be in the counts alone, which
// are lost first.
//
// Threads: one. Lifetime: any.
class LossReport {
public:
    using Clock = std::chrono::steady_clock;

    // Sums, since the start.
    struct Losses {
        std::uint64_t events = 0;   // got and counts that the broker was not told
        std::uint64_t answers = 0;  // that did not go out
        std::uint64_t records = 0;  // of panels, too fast for the gateway
        std::uint64_t commands = 0; // answered busy, unseen
    };

    static constexpr std::chrono::minutes shortestPause{1};
    static constexpr std::chrono::hours longestPause{1};

    // The line that is due.
    std::optional<std::string> look(const Losses& sums, Clock::time_point now);

    // What no line has said yet.
    std::optional<std::string> finish(const Losses& sums);

private:
    Losses m_told;
    Clock::time_point m_due = Clock::time_point::min();
    Clock::duration m_pause = shortestPause;
};

} // namespace Vantor
