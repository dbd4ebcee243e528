#include "simulator/panel/PanelOutbox.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace Vantor {

void PanelOutbox::add(std::vector<std::uint8_t> packet)
{
    m_packets.push_back(std::move(packet));
}

void PanelOutbox::clear()
{
    m_packets.clear();
    m_open.reset();
}

bool PanelOutbox::isEmpty() const
{
    return m_packets.empty() && !m_open;
}

PanelOutbox::Transfer PanelOutbox::gather(std::uint32_t capacity)
{
    Transfer transfer;
    while (!m_packets.empty()) {
        const std::vector<std::uint8_t>& packet = m_packets.front();
        if (!transfer.packetEnds.empty() && transfer.bytes.size() + packet.size() > capacity)
            break;
        transfer.bytes.insert(transfer.bytes.end(), packet.begin(), packet.end());
        transfer.packetEnds.push_back(transfer.bytes.size());
        m_packets.pop_front();
    }
    return transfer;
}

PanelOutbox::Chunk PanelOutbox::take(std::uint32_t capacity, std::uint32_t limit)
{
    Transfer transfer = m_open ? std::move(*m_open) : gather(capacity);
    m_open.reset();
    const std::size_t size = transfer.bytes.size();
    const std::size_t room = size <= capacity ? size : capacity - capacity % busPacket;
    const std::size_t given = std::min<std::size_t>(room, limit);

    Chunk chunk;
    const auto cut = transfer.bytes.begin() + static_cast<std::ptrdiff_t>(given);
    chunk.bytes.assign(transfer.bytes.begin(), cut);
    const auto firstUnfinished = std::upper_bound(transfer.packetEnds.begin(), transfer.packetEnds.end(), given);
    chunk.packets = static_cast<std::uint32_t>(firstUnfinished - transfer.packetEnds.begin());
    if (given < room)
        return chunk;
    if (room < size && capacity % busPacket != 0) {
        chunk.status = -EOVERFLOW;
        return chunk;
    }

    const bool zeroPacketFollows = given == capacity && given % busPacket == 0 && given != 0;
    if (room < size || zeroPacketFollows) {
        transfer.bytes.erase(transfer.bytes.begin(), cut);
        transfer.packetEnds.erase(transfer.packetEnds.begin(), firstUnfinished);
        for (std::size_t& end : transfer.packetEnds)
            end -= given;
        m_open = std::move(transfer);
    }
    return chunk;
}

} // namespace Vantor
