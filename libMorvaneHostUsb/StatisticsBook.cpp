#include "libMorvaneHostUsb/StatisticsBook.h"

#include "libMorvaneHostUsb/DeviceCounters.h"
#include "libMorvaneHostUsb/PriorityPacker.h"
#include "libMorvaneHostUsb/UsbMessageQueue.h"

#include <algorithm>
#include <utility>

namespace Vantor {

namespace {

void add(TransferFailures& sum, const TransferFailures& other)
{
    sum.timedOut += other.timedOut;
    sum.stalled += other.stalled;
    sum.overflowed += other.overflowed;
    sum.failed += other.failed;
    sum.cancelled += other.cancelled;
    sum.gone += other.gone;
    sum.refused += other.refused;
    sum.watchdogs += other.watchdogs;
    sum.late += other.late;
    sum.lostBytes += other.lostBytes;
}

void add(SendStatistics& sum, const SendStatistics& other)
{
    sum.packets += other.packets;
    sum.bytes += other.bytes;
    sum.records += other.records;
    sum.cutPackets += other.cutPackets;
    sum.cutRecords += other.cutRecords;
    sum.emptySends += other.emptySends;
    sum.supersededValues += other.supersededValues;
    sum.duplicates += other.duplicates;
    sum.slices += other.slices;
    sum.pictureBytes += other.pictureBytes;
    sum.pictures += other.pictures;
    sum.coveredPictures += other.coveredPictures;
    add(sum.failures, other.failures);
}

void add(ReceiveStatistics& sum, const ReceiveStatistics& other)
{
    sum.buffers += other.buffers;
    sum.bytes += other.bytes;
    sum.emptyReads += other.emptyReads;
    sum.packets += other.packets;
    sum.records += other.records;
    sum.malformedPackets += other.malformedPackets;
    sum.refusedRecords += other.refusedRecords;
    sum.unparsedBuffers += other.unparsedBuffers;
    add(sum.failures, other.failures);
}

void add(WaitingStatistics& sum, const WaitingStatistics& other)
{
    sum.now += other.now;
    sum.most = std::max(sum.most, other.most);
}

void add(DeviceStatistics& sum, const DeviceStatistics& other)
{
    add(sum.sent, other.sent);
    add(sum.received, other.received);
    add(sum.highPriorityRecords, other.highPriorityRecords);
    add(sum.normalRecords, other.normalRecords);
    add(sum.pictures, other.pictures);
    sum.upgradeResends += other.upgradeResends;
    sum.upgradeDuplicates += other.upgradeDuplicates;
    for (std::size_t place = 0; place < sum.timesToTaken.size(); ++place)
        sum.timesToTaken[place] += other.timesToTaken[place];
}

// What waited in a device that is no more waits no more.
DeviceStatistics withoutWaiting(DeviceStatistics statistics)
{
    statistics.highPriorityRecords.now = 0;
    statistics.normalRecords.now = 0;
    statistics.pictures.now = 0;
    return statistics;
}

} // namespace

void StatisticsBook::count(Event event, std::uint64_t times)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    switch (event) {
    case Event::Arrival:
        m_past.arrivals += times;
        break;
    case Event::Departure:
        m_past.departures += times;
        break;
    case Event::Dead:
        m_past.dead += times;
        break;
    case Event::Stray:
        m_past.stray += times;
        break;
    case Event::Pass:
        m_past.passes += times;
        break;
    }
}

void StatisticsBook::setQueue(std::shared_ptr<UsbMessageQueue> queue)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_queue.swap(queue); // the other one goes without the lock: it may close counters
}

void StatisticsBook::open(DeviceCounters& counters, const PriorityPacker& packer)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_present.emplace(&counters, &packer);
}

void StatisticsBook::leavePacker(DeviceCounters& counters)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto entry = m_present.find(&counters);
    const DeviceStatistics last = withoutWaiting(entry->second->readStatistics(counters));
    counters.change([&last](DeviceStatistics& statistics) {
        const ReceiveStatistics received = statistics.received; // may have grown since
        statistics = last;
        statistics.received = received;
    });
    entry->second = nullptr;
}

void StatisticsBook::close(DeviceCounters& counters)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    add(m_past.devices, counters.read());
    m_present.erase(&counters);
}

ManagerStatistics StatisticsBook::read() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ManagerStatistics statistics = m_past;
    for (const auto& [counters, packer] : m_present)
        add(statistics.devices, packer != nullptr ? packer->readStatistics(*counters) : counters->read());
    if (m_queue)
        statistics.waitingBuffers = static_cast<std::uint64_t>(m_queue->size());
    return statistics;
}

} // namespace Vantor
