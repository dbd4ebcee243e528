#include "simulator/web/RecordRing.h"

#include <algorithm>

namespace Vantor {

RecordRing::RecordRing() : m_entries(capacity) {}

void RecordRing::add(std::chrono::nanoseconds time, unsigned int panel, Way way, PacketType type,
                     const std::vector<std::uint8_t>& payload)
{
    Entry& entry = m_entries[m_count++ % capacity];
    entry.time = time;
    entry.size = static_cast<std::uint32_t>(payload.size());
    entry.type = static_cast<std::uint8_t>(type);
    entry.panel = static_cast<std::uint8_t>(panel);
    entry.way = way;
    std::copy_n(payload.begin(), std::min(payload.size(), keptBytes), entry.bytes.begin());
}

} // namespace Vantor
