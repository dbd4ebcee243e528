#include "panelctl/command/Delivery.h"

#include "protocol/PacketHeader.h"
#include "wire/RecordHeader.h"

namespace Vantor {

Delivery::Delivery(const Panel& panel) : m_panel(panel), m_taken(panel), m_recordBytes(0) {}

void Delivery::add(PacketType type, const std::optional<unsigned int>& key, const std::vector<std::uint8_t>& payload)
{
    PriorityPacker& packer = m_panel.getDevice().getPacker();
    const auto size = static_cast<unsigned int>(payload.size());
    m_recordBytes += sizeof(RecordHeader) + size;
    if (key)
        packer.addStructData(payload.data(), size, type, *key);
    else
        packer.addStructData(payload.data(), size, type);
}

bool Delivery::isTaken()
{
    return !m_panel.getDevice().getPacker().hasMoreData() && getTakenBytes() >= getLeastTotal();
}

bool Delivery::isCutShort()
{
    const std::uint64_t taken = getTakenBytes();
    return taken != 0 && taken < getLeastTotal();
}

std::uint64_t Delivery::getLeastTotal() const
{
    return m_recordBytes + sizeof(PacketHeader);
}

} // namespace Vantor
