#pragma once

#include "panelctl/session/Session.h"
#include "panelctl/terminal/Report.h"

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace Vantor {

// What `watch` says of an event.
class EventReport final : public Report {
public:
    // `time` since the watch began; at most `shownBytes` of what came.
    EventReport(const PanelEvent& event, std::chrono::nanoseconds time, std::size_t shownBytes)
        : m_event(event), m_time(time), m_shownBytes(shownBytes)
    {}

    std::string asText() const override;
    JsonObject asJson() const override;

private:
    std::string describe() const;
    void addBytes(JsonObject& object, const char* name) const;

    const PanelEvent& m_event;
    const std::chrono::nanoseconds m_time;
    const std::size_t m_shownBytes;
};

// What it has said so far.
struct WatchCounts {
    std::uint64_t packets = 0;
    std::uint64_t malformed = 0;
    std::uint64_t arrivals = 0;
    std::uint64_t departures = 0;
};

class WatchSummary final : public Report {
public:
    explicit WatchSummary(const WatchCounts& counts) : m_counts(counts) {}

    std::string asText() const override;
    JsonObject asJson() const override;

private:
    const WatchCounts& m_counts;
};

} // namespace Vantor
