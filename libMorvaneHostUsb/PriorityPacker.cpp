#include "libMorvaneHostUsb/PriorityPacker.h"

#include "wire/PanelLink.h"

namespace Vantor {

namespace {

bool isHighPriority(const PacketType& type)
{
    switch (static_cast<std::int32_t>(type)) {
    case 6:
    case 8:
    case 10:
    case 11:
    case 12:
    case 24:
    case 29:
    case 31:
    case 34:
    case 35:
    case 37:
    case 40:
    case 41:
    case 44:
        return true;
    default:
        return false;
    }
}
} // namespace

PriorityPacker::PriorityPacker(const unsigned int& maxPacketSize)
    : PacketPacker(maxPacketSize), m_nextLcd(m_lcdData.end()), m_observer(nullptr)
{
    setDeviceInformation(DeviceInformation{}); // required; changes no limit
}

PriorityPacker::~PriorityPacker() = default;

void PriorityPacker::clearData()
{
    const std::lock_guard<std::mutex> lock(m_dataMutex);
    PacketPacker::clearData();
}

std::size_t PriorityPacker::addStructData(const void* data, const unsigned int& size, const PacketType& type)
{
    const auto* bytes = static_cast<const unsigned char*>(data);
    if (bytes == nullptr && size != 0)
        return size;
    std::vector<unsigned char> record(bytes, bytes + size);
    {
        const std::lock_guard<std::mutex> lock(m_dataMutex);
        _queueOf(type).addStructData(std::move(record), type);
    }
    notifyObserver();
    return size;
}

std::size_t PriorityPacker::addStructData(const void* data, const unsigned int& size, const PacketType& type,
                                          const unsigned int& key)
{
    const auto* bytes = static_cast<const unsigned char*>(data);
    if (bytes == nullptr && size != 0)
        return size;
    std::vector<unsigned char> record(bytes, bytes + size);
    {
        const std::lock_guard<std::mutex> lock(m_dataMutex);
        _queueOf(type).addStructData(std::move(record), type, key);
    }
    notifyObserver();
    return size;
}

PacketQueue& PriorityPacker::_queueOf(const PacketType& type)
{
    return isHighPriority(type) ? m_highPriorityQueue : m_normalQueue;
}

std::size_t PriorityPacker::_addStructData(const PacketType& type, const std::vector<unsigned char>& data)
{
    return PacketPacker::addStructData(data.data(), static_cast<unsigned int>(data.size()), type);
}

void PriorityPacker::setDeviceInformation(const DeviceInformation& info)
{
    const std::lock_guard<std::mutex> lock(m_dataMutex);
    if (info.maxPacketSize > PanelLink::packetLimitFloor)
        setMaxPacketSize(info.maxPacketSize);
}

void PriorityPacker::setObserver(Observer* observer)
{
    const std::lock_guard<std::mutex> lock(m_observerMutex);
    m_observer = observer;
}

void PriorityPacker::notifyObserver()
{
    const std::lock_guard<std::mutex> lock(m_observerMutex);
    if (m_observer != nullptr)
        m_observer->onPackerHasChanged();
}

bool PriorityPacker::hasMoreData() const
{
    const std::lock_guard<std::mutex> lock(m_dataMutex);
    return _hasMoreData();
}

bool PriorityPacker::_hasMoreData() const
{
    return m_highPriorityQueue.hasMoreData() || m_normalQueue.hasMoreData() || !m_changedLcds.empty();
}

void PriorityPacker::stopWaiting() {}

unsigned int PriorityPacker::prepareNextPacket()
{
    const std::lock_guard<std::mutex> lock(m_dataMutex);
    unsigned int count = 0;
    if (!m_highPriorityQueue.prepareNextPacket(*this, count) || !m_normalQueue.prepareNextPacket(*this, count))
        return count;
    if (m_nextLcd == m_lcdData.end())
        m_nextLcd = m_lcdData.begin();
    if (m_lcdData.empty())
        return count;
    return _packLcdSlices(count);
}
} // namespace Vantor
