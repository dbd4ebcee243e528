#pragma once

#include "panelctl/session/Session.h"

#include <cstdint>

namespace Vantor {

// Queues records for all panels at once and takes the time from the first
// addStructData until the last byte was counted as taken.
class ThroughputMeter {
public:
    // `records` for each panel.
    explicit ThroughputMeter(std::uint32_t records);

    // Throws Failure when the panels do not take everything.
    void measure(Session& session);

    // Of all panels together.
    std::uint64_t getRecords() const { return m_totalRecords; }
    std::uint64_t getBytes() const { return m_totalBytes; }
    std::uint64_t getPackets() const { return m_totalPackets; }
    double getSeconds() const { return m_seconds; }

private:
    std::uint32_t m_records;
    std::uint64_t m_totalRecords = 0;
    std::uint64_t m_totalBytes = 0;
    std::uint64_t m_totalPackets = 0;
    double m_seconds = 0;
};

} // namespace Vantor
