#pragma once

#include "protocol/PacketType.h"
#include "simulator/replay/RecordedSession.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace Vantor {

// Compares what a host sends with what it sent in a capture, record by record: how they
// stand in packets, and when they come, makes no difference.
//
// What comes first of two types, and how many slices a picture is cut into, is a matter of
// timing. So records are compared in order within their type, and slices row by row in
// order within their LCD. A request for device information that is repeated, as hosts do
// until it is answered, counts once.
//
// Threads: one at a time. Lifetime: the session must outlive it.
class RecordComparison {
public:
    struct Options {
        bool wholeOrder = false; // all records of a panel in order, slices as they are cut
        std::set<PacketType> ignored;
    };

    RecordComparison(const RecordedSession& session, Options options);

    // The host has sent it; `time` is told with a difference.
    void add(unsigned int panel, PacketType type, const std::vector<std::uint8_t>& payload,
             std::chrono::nanoseconds time);

    // What differs, several lines each, the first difference of each type or LCD; those of
    // a panel in the order of its records. Empty when nothing does. What comes behind the
    // end of a capture that has not seen the host finish is no difference.
    std::vector<std::string> describeDifferences() const;

private:
    struct Sent {
        PacketType type;
        std::vector<std::uint8_t> payload;
        std::chrono::nanoseconds time;
    };

    const RecordedSession& m_session;
    const Options m_options;
    std::vector<std::vector<Sent>> m_sent; // by panel
};

} // namespace Vantor
