#include "panel2mqtt/broker/BackOff.h"

#include <algorithm>
#include <utility>

namespace Vantor {

BackOff::BackOff(const BrokerPace& pace, Chance chance)
    : m_first(pace.firstDelay), m_last(pace.lastDelay), m_steadyTime(pace.steadyTime), m_chance(std::move(chance)),
      m_next(pace.firstDelay)
{}

BackOff::Duration BackOff::getDelayAfter(std::chrono::steady_clock::duration upTime)
{
    if (upTime >= m_steadyTime)
        m_next = m_first;
    const Duration delay = m_next;
    m_next = std::min(2 * m_next, m_last);
    return std::chrono::duration_cast<Duration>(delay * (0.5 + m_chance()));
}

} // namespace Vantor
