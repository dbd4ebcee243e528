#pragma once

#include "simulator/bus/PanelOrder.h"

#include <chrono>
#include <map>
#include <optional>

namespace Vantor {

// Commands that wait for their time; those of the same time in the order in which they
// were added.
//
// Threads: one at a time.
class OrderTimeline {
public:
    void add(std::chrono::nanoseconds time, const PanelOrder& command);

    // When the next one is due.
    std::optional<std::chrono::nanoseconds> getNextTime() const;

    // The next one, if it is due.
    std::optional<PanelOrder> takeDue(std::chrono::nanoseconds now);

private:
    std::multimap<std::chrono::nanoseconds, PanelOrder> m_commands;
};

} // namespace Vantor
