#pragma once

#include "panelctl/session/Panel.h"

#include <cstddef>

namespace Vantor {

class Session;

// How long a panel takes for a record: from the call of addStructData until its byte counter
// shows that it was taken, as precisely as that is read. In milliseconds.
struct Latency {
    double median;
    double nearlyAll; // 99 % of the records took no longer
    double longest;

    // Sends so many records one at a time. Throws Failure when the panel leaves or does not
    // take one.
    static Latency measure(Session& session, const Panel& panel, std::size_t records, std::size_t payloadBytes);
};

} // namespace Vantor
