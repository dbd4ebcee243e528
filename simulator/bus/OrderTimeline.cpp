#include "simulator/bus/OrderTimeline.h"

namespace Vantor {

void OrderTimeline::add(std::chrono::nanoseconds time, const PanelOrder& command)
{
    m_commands.emplace(time, command);
}

std::optional<std::chrono::nanoseconds> OrderTimeline::getNextTime() const
{
    return m_commands.empty() ? std::nullopt : std::optional(m_commands.begin()->first);
}

std::optional<PanelOrder> OrderTimeline::takeDue(std::chrono::nanoseconds now)
{
    if (m_commands.empty() || m_commands.begin()->first > now)
        return std::nullopt;
    return m_commands.extract(m_commands.begin()).mapped();
}

} // namespace Vantor
