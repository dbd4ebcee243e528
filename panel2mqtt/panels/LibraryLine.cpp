#include "panel2mqtt/panels/LibraryLine.h"

#include "protocol/ReqDeviceInfo.h"
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

void LibraryLine::startUpgrade(const std::string& mainPath, const std::string& servoPath)
{
    m_device->startFirmwareUpgrade(
        mainPath, servoPath, [written = m_written](const UsbDevice::FirmwareProgress& progress) {
            if (progress.totalBytes != 0) // not a reply that came after the end
                written->store(std::uint64_t{progress.totalBytes} << 32 | progress.bytesWritten);
        });
}

PanelLine::Upgrade LibraryLine::getUpgrade() const
{
    const bool isUpdating = m_device->isUpdating(); // first: what is counted before its end is seen
    const std::uint64_t written = m_written->load();
    return {isUpdating, static_cast<std::uint32_t>(written), static_cast<std::uint32_t>(written >> 32)};
}

void LibraryLine::askInformation()
{
    m_device->getPacker().addData(ReqDeviceInfo{1});
}

unsigned int LibraryLine::getPacketLimit() const
{
    const DeviceInformation* const info = m_device->getDeviceInfo();
    const unsigned int limit = info != nullptr ? info->maxPacketSize : 0U;
    return std::max(limit, unsigned{PanelLink::packetLimitFloor});
}

} // namespace Vantor
