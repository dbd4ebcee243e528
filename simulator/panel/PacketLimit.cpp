#include "simulator/panel/PacketLimit.h"

#include "wire/PanelLink.h"

#include <algorithm>

namespace Vantor {

PacketLimit::PacketLimit(std::uint16_t toBeAnnounced)
    : m_announced(PanelLink::initialPacketLimit), m_before(std::max(toBeAnnounced, PanelLink::initialPacketLimit))
{}

void PacketLimit::announce(std::uint16_t bytes, std::chrono::nanoseconds now)
{
    m_before = at(now);
    m_graceEnd = now + grace;
    if (bytes > PanelLink::packetLimitFloor)
        m_announced = bytes;
}

std::uint32_t PacketLimit::at(std::chrono::nanoseconds now) const
{
    return now < m_graceEnd ? std::max(m_announced, m_before) : m_announced;
}

} // namespace Vantor
