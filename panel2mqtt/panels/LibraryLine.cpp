#include "panel2mqtt/panels/LibraryLine.h"

#include "wire/PanelLink.h"

#include <algorithm>

namespace Vantor {

void LibraryLine::addRecord(std::uint8_t type, std::optional<std::uint32_t> key, const std::string& payload)
{
    PriorityPacker& packer = m_device->getPacker();
    const auto size = static_cast<unsigned int>(payload.size());
    if (key)
        packer.addStructData(payload.data(), size, static_cast<PacketType>(type), *key);
    else
        packer.addStructData(payload.data(), size, static_cast<PacketType>(type));
}

void LibraryLine::draw(std::uint16_t lcd, std::vector<ClientLcdBitmap> layers)
{
    PriorityPacker& packer = m_device->getPacker();
    packer.lockLcd(lcd);
    for (ClientLcdBitmap& layer : layers)
        packer.drawBitmapData(std::move(layer));
    packer.unlockLcd(lcd);
}

unsigned int LibraryLine::getPacketLimit() const
{
    const DeviceInformation* const info = m_device->getDeviceInfo();
    const unsigned int limit = info != nullptr ? info->maxPacketSize : 0U;
    return std::max(limit, unsigned{PanelLink::packetLimitFloor});
}

} // namespace Vantor
