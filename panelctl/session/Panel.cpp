#include "panelctl/session/Panel.h"

#include "panelctl/terminal/Wording.h"
#include "wire/PanelLink.h"

#include <cstring>
#include <utility>

namespace Vantor {

namespace {

constexpr unsigned int packetHeaderSize = sizeof(PacketHeader);
constexpr unsigned int recordHeaderSize = sizeof(RecordHeader);

} // namespace

Panel::Panel(std::shared_ptr<UsbDevice> device, const std::optional<DeviceInformation>& information)
    : m_device(std::move(device)), m_information(information)
{}

std::string Panel::getUidText() const
{
    return formatUid(getUid());
}

std::string Panel::getPlace() const
{
    std::string place = std::to_string(getUid() >> 8);
    char separator = '-';
    for (const std::uint8_t port : m_device->getPortNumbers()) {
        place += separator + std::to_string(port);
        separator = '.';
    }
    return place;
}

std::string Panel::getName() const
{
    return "panel " + getUidText() + " (" + getPlace() + ")";
}

std::optional<Reason> Panel::getReason() const
{
    const DeviceFailure failure = m_device->getFailure();
    if (failure.operation == DeviceFailure::Operation::None)
        return std::nullopt;
    return Reason{DeviceFailure::nameOf(failure.operation), failure.code, failure.toString()};
}

std::string Panel::getDescriptionBytes() const
{
    if (!m_information)
        return "";
    const auto* const text = reinterpret_cast<const char*>(m_information->description);
    return {text, strnlen(text, sizeof m_information->description)};
}

std::string Panel::getDescription() const
{
    std::string description = getDescriptionBytes();
    for (char& character : description)
        if (character < ' ' || character > '~')
            character = '.';
    return description;
}

unsigned int Panel::getPacketLimit() const
{
    return getPayloadLimit() + packetHeaderSize + recordHeaderSize;
}

// Asks a packer, so that the rule for small announcements stays the library's.
unsigned int Panel::getPayloadLimit() const
{
    PriorityPacker packer(PanelLink::initialPacketLimit);
    if (m_information)
        packer.setDeviceInformation(*m_information);
    return packer.getPacketSizeRemaining() - recordHeaderSize;
}

std::uint32_t Panel::getSentBytes() const
{
    return __atomic_load_n(&m_device->getSentData(), __ATOMIC_RELAXED);
}

std::uint32_t Panel::getReceivedBytes() const
{
    return __atomic_load_n(&m_device->getReceivedData(), __ATOMIC_RELAXED);
}

std::string formatUid(std::uint16_t uid)
{
    return formatHex(uid, 4);
}

} // namespace Vantor
