#pragma once

#include "simulator/bus/PanelCommand.h"

#include <chrono>
#include <map>
#include <optional>

namespace Vantor {

// Commands that wait for their time; those of the same time in the order in which they
// were added.
//
// Threads: one at a time.
class CommandTimeline {
public:
    void add(std::chrono::nanoseconds time, const PanelCommand& command);

    // When the next one is due.
    std::optional<std::chrono::nanoseconds> getNextTime() const;

    // The next one, if it is due.
    std::optional<PanelCommand> takeDue(std::chrono::nanoseconds now);

private:
    std::multimap<std::chrono::nanoseconds, PanelCommand> m_commands;
};

} // namespace Vantor
