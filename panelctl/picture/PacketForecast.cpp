#include "panelctl/picture/PacketForecast.h"

#include "libMorvaneHostUsb/PriorityPacker.h"
#include "wire/PanelLink.h"
#include "wire/SliceHeader.h"

#include <algorithm>
#include <cstring>

namespace Vantor {

namespace {

constexpr std::size_t wordSize = 4;

} // namespace

PacketForecast::PacketForecast(const DeviceInformation& panel, const std::vector<ClientLcdBitmap>& layers)
{
    PriorityPacker packer(PanelLink::initialPacketLimit);
    packer.setDeviceInformation(panel);
    for (const ClientLcdBitmap& layer : layers)
        packer.drawBitmapData(layer);
    while (packer.prepareNextPacket() != 0) {
        m_ends.push_back(getBytes() + packer.getPacketSize());
        packer.clearData();
    }
    m_isComplete = !packer.hasMoreData();
}

unsigned int PacketForecast::findNeededLimit(const std::vector<ClientLcdBitmap>& layers)
{
    const auto isEnough = [&layers](unsigned int limit) {
        DeviceInformation panel{};
        panel.maxPacketSize = static_cast<std::uint16_t>(limit);
        return PacketForecast(panel, layers).isComplete();
    };
    if (!isEnough(UINT16_MAX))
        return 0;
    unsigned int limit = PanelLink::packetLimitFloor + 1;
    while (!isEnough(limit))
        ++limit;
    return limit;
}

std::size_t PacketForecast::getLongestRow(const ClientLcdBitmap& encoded)
{
    std::size_t longest = 0;
    std::size_t row = 0;
    for (std::size_t offset = 0; offset < encoded.encodedSize; offset += wordSize) {
        std::uint32_t word = 0;
        std::memcpy(&word, encoded.data() + offset, wordSize);
        row = word == SliceHeader::rowMarker ? wordSize : row + wordSize;
        longest = std::max(longest, row);
    }
    return longest;
}

} // namespace Vantor
