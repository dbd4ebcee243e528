#pragma once

#include "panel2mqtt/settings/Settings.h"

#include <chrono>
#include <string>

namespace Vantor {

// One connection with the broker, as the gateway makes it, but without a last will and without a
// word of this host: it disturbs no gateway that serves.
//
// Threads: its caller's, which it blocks.
class BrokerTrial {
public:
    enum class Outcome {
        Well,
        NotTaken, // `reason`: why there is no connection
        Unheard,  // what this host publishes does not come back to it
    };

    // Each of reaching the broker and hearing from it takes `limit` at the most.
    static BrokerTrial run(const Settings& settings, std::chrono::milliseconds limit);

    Outcome outcome;
    std::string reason;
};

} // namespace Vantor
