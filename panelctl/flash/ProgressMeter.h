#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <utility>

namespace Vantor {

// How fast something advances, by what was seen in the last seconds. Pure: the times
// are passed in, and never go back.
class ProgressMeter {
public:
    using Time = std::chrono::steady_clock::time_point;

    // What counts for the rate; longer than the library's longest pause.
    static constexpr std::chrono::seconds window{5};

    explicit ProgressMeter(std::uint32_t total) : m_total(total) {}

    void note(Time now, std::uint32_t done);

    std::uint32_t getTotal() const { return m_total; }
    std::uint32_t getDone() const { return m_samples.empty() ? 0 : m_samples.back().second; }

    // 0 to 100, rounded down: 100 means all.
    unsigned int getPercentage() const;

    // Bytes a second over the window, until all is done; 0 before anything was done, and
    // when it stands still.
    double getRate() const;

    // At this rate, and with `pauses` in which nothing advances; nothing when it stands still.
    std::optional<std::chrono::seconds> getRemaining(std::chrono::milliseconds pauses = {}) const;

private:
    std::uint32_t m_total;
    std::deque<std::pair<Time, std::uint32_t>> m_samples; // the first one is where the window begins
};

} // namespace Vantor
