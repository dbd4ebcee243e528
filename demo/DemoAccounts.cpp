#include "demo/DemoAccounts.h"

#include "demo/DemoFormat.h"

namespace Vantor {

void DemoAccount::count(const PanelEvent& event)
{
    if (event.kind == PanelEvent::Kind::Packet)
        ++received[event.type];
}

std::uint64_t DemoAccount::getPackets() const
{
    std::uint64_t packets = 0;
    for (const auto& [type, number] : received)
        packets += number;
    return packets;
}

std::string DemoAccount::describeReceived() const
{
    std::string text;
    for (const auto& [type, number] : received)
        text += (text.empty() ? "" : ", ") + formatCount(number) + " of type " + std::to_string(static_cast<int>(type));
    return text.empty() ? "none" : text;
}

} // namespace Vantor
