#pragma once

#include "simulator/panel/PanelFault.h"

#include <deque>
#include <optional>

namespace Vantor {

// The faults asked of one endpoint. Those for one transfer wait in line and come
// first; behind them stands at most one sticky fault, the latest.
//
// Threads: one at a time.
class FaultPlan {
public:
    void add(const PanelFault& fault);
    void clear();

    // Lifts a sticky stall and nothing else.
    void clearHalt();

    // Whether the endpoint stays stalled until clearHalt.
    bool isHalted() const;

    // What the next transfer meets; null when nothing.
    const PanelFault* next() const;

    // The next transfer has begun: a fault for one transfer is used up.
    void use();

private:
    std::deque<PanelFault> m_once;
    std::optional<PanelFault> m_sticky;
};

} // namespace Vantor
