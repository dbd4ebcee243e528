#include "panelctl/command/Delivery.h"

#include "panelctl/session/Diagnosis.h"
#include "wire/RecordHeader.h"

namespace Vantor {

void Delivery::add(PacketType type, const std::optional<unsigned int>& key, const std::vector<std::uint8_t>& payload)
{
    PriorityPacker& packer = m_handover.getPacker();
    const auto size = static_cast<unsigned int>(payload.size());
    m_recordBytes += sizeof(RecordHeader) + size;
    if (key)
        packer.addStructData(payload.data(), size, type, *key);
    else
        packer.addStructData(payload.data(), size, type);
}

void Delivery::await(Session& session, std::chrono::nanoseconds limit, const std::string& note)
{
    constexpr Handover::Wording wording{"record", "whether the panel has got it", explainRecordCutShort};
    m_handover.await(session, {getLeastTotal()}, limit, wording, note);
}

} // namespace Vantor
