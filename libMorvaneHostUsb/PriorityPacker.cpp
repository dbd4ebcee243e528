#include "libMorvaneHostUsb/PriorityPacker.h"

#include "libMorvaneHostUsb/DeviceCounters.h"
#include "libMorvaneHostUsb/PackerCounts.h"
#include "wire/PanelLink.h"

#include <algorithm>

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
    : PacketPacker(maxPacketSize), m_nextLcd(m_lcdData.end()), m_observer(nullptr), m_counts(new PackerCounts)
{
    setDeviceInformation(DeviceInformation{}); // required; changes no limit
}

PriorityPacker::~PriorityPacker() = default;

void PriorityPacker::clearData()
{
    const std::lock_guard<std::mutex> lock(m_dataMutex);
    PacketPacker::clearData();
    m_counts->dropPacket();
}

void PriorityPacker::finishPacket(std::chrono::system_clock::time_point now, std::uint32_t taken)
{
    const std::lock_guard<std::mutex> lock(m_dataMutex);
    m_counts->finishPacket(now, taken, getPacketSize(), getPacketCount());
    PacketPacker::clearData();
}

DeviceStatistics PriorityPacker::readStatistics(const DeviceCounters& counters) const
{
    const std::lock_guard<std::mutex> lock(m_dataMutex);
    DeviceStatistics statistics = counters.read();
    m_counts->read(statistics);
    const PacketQueue::Counts& high = m_highPriorityQueue.getCounts();
    const PacketQueue::Counts& normal = m_normalQueue.getCounts();
    statistics.highPriorityRecords = {high.waiting, std::max(high.waiting, high.mostWaiting)};
    statistics.normalRecords = {normal.waiting, std::max(normal.waiting, normal.mostWaiting)};
    statistics.sent.supersededValues = high.superseded + normal.superseded;
    statistics.sent.duplicates = high.duplicates + normal.duplicates;
    return statistics;
}

PriorityPacker::Progress PriorityPacker::getProgress() const
{
    const std::lock_guard<std::mutex> lock(m_dataMutex);
    Progress progress = m_counts->readProgress();
    progress.waitingRecords = m_highPriorityQueue.getCounts().waiting + m_normalQueue.getCounts().waiting;
    progress.isUnderWay = m_header.count != 0;
    return progress;
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
        m_counts->getTimes().add(type, m_header.count != 0);
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
        PacketQueue& queue = _queueOf(type);
        const std::size_t waiting = queue.getCounts().waiting;
        queue.addStructData(std::move(record), type, key);
        if (queue.getCounts().waiting != waiting)
            m_counts->getTimes().add(type, m_header.count != 0);
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

// Not analysed: the queue that calls it knows the packer, but not its mutex.
void PriorityPacker::_countPacked(const PacketType& type, unsigned int records) MORVANE_NO_THREAD_SAFETY_ANALYSIS
{
    if (records != 0)
        m_counts->getTimes().pack(type, records);
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
    return prepareNextPacket(std::chrono::system_clock::now());
}

unsigned int PriorityPacker::prepareNextPacket(std::chrono::system_clock::time_point now)
{
    const std::lock_guard<std::mutex> lock(m_dataMutex);
    AddingTimes& times = m_counts->getTimes();
    times.setTime(now);
    const unsigned int count = _fillPacket();
    if (m_header.count == 0)
        times.forgetTime();
    return count;
}

unsigned int PriorityPacker::_fillPacket()
{
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
