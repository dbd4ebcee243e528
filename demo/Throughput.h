#pragma once

#include "panelctl/session/Session.h"

#include <cstdint>

namespace Vantor {

// What all panels together take when records are queued for all of them at once: from the
// first addStructData until the last byte was counted as taken.
struct Throughput {
    std::uint64_t records;
    std::uint64_t bytes;
    std::uint64_t packets;
    double seconds;

    // `records` for each panel. Throws Failure when the panels do not take everything.
    static Throughput measure(Session& session, std::uint32_t records);
};

} // namespace Vantor
