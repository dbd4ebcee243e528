#pragma once

#include <chrono>

namespace Vantor {

// How long things take at the most, and how soon they are tried again.
//
// Threads: a plain value.
struct BrokerPace {
    using Duration = std::chrono::milliseconds;

    Duration firstDelay = std::chrono::seconds(1); // after a connection that failed; then doubled
    Duration lastDelay = std::chrono::seconds(60);
    // A connection that lasted this long begins anew with the first: less than overtakenTime, or a
    // lasting flood would keep it away.
    Duration steadyTime = std::chrono::seconds(4);
    Duration lookUpTime = std::chrono::seconds(10);     // for a name's address
    Duration connectTime = std::chrono::seconds(10);    // with one address, until all subscriptions are granted
    Duration confirmTime = std::chrono::seconds(60);    // of what the broker has been sent
    Duration overtakenTime = std::chrono::seconds(5);   // of that, when it has confirmed what came later
    Duration echoTime = std::chrono::seconds(20);       // between two looks at whether it still delivers
    Duration stopTime = std::chrono::seconds(1);        // for what still waits
    Duration refusalInterval = std::chrono::minutes(1); // between two reports of a refusal, or tries of a state
};

} // namespace Vantor
