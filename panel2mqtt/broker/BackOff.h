#pragma once

#include "panel2mqtt/broker/BrokerPace.h"

#include <chrono>
#include <functional>

namespace Vantor {

// How long to wait before a connection is tried again: doubled each time, and half as long
// to one and a half times as long by chance, so that a fleet whose broker was away does not
// come back as one.
//
// Threads: one. Pure: chance and time are handed in.
class BackOff {
public:
    using Duration = BrokerPace::Duration;
    using Chance = std::function<double()>; // from 0 to below 1

    BackOff(const BrokerPace& pace, Chance chance);

    // The connection that has ended was up for this long: 0 if it never was.
    Duration getDelayAfter(std::chrono::steady_clock::duration upTime);

private:
    const Duration m_first;
    const Duration m_last;
    const Duration m_steadyTime;
    const Chance m_chance;
    Duration m_next;
};

} // namespace Vantor
