#include "simulator/bus/CommandTimeline.h"

namespace Vantor {

void CommandTimeline::add(std::chrono::nanoseconds time, const PanelCommand& command)
{
    m_commands.emplace(time, command);
}

std::optional<std::chrono::nanoseconds> CommandTimeline::getNextTime() const
{
    return m_commands.empty() ? std::nullopt : std::optional(m_commands.begin()->first);
}

std::optional<PanelCommand> CommandTimeline::takeDue(std::chrono::nanoseconds now)
{
    if (m_commands.empty() || m_commands.begin()->first > now)
        return std::nullopt;
    return m_commands.extract(m_commands.begin()).mapped();
}

} // namespace Vantor
