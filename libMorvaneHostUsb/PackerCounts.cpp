#include "libMorvaneHostUsb/PackerCounts.h"

#include <algorithm>

namespace Vantor {

namespace {

// The number of bits of the microseconds.
std::size_t placeOf(std::chrono::system_clock::duration time)
{
    const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(time).count();
    if (microseconds <= 0) // the clock may have been set back
        return 0;
    const auto bits = static_cast<std::size_t>(64 - __builtin_clzll(static_cast<unsigned long long>(microseconds)));
    return std::min(bits, DeviceStatistics::timePlaces - 1);
}

} // namespace

void PackerCounts::addPicture()
{
    ++m_pictures.now;
    m_pictures.most = std::max(m_pictures.most, m_pictures.now);
}

void PackerCounts::coverPictures(std::uint64_t number)
{
    m_pictures.now -= number;
    m_sent.coveredPictures += number;
}

void PackerCounts::packSlice(std::size_t pixelBytes, bool isLast)
{
    ++m_packet.slices;
    m_packet.pictureBytes += pixelBytes;
    if (isLast) {
        ++m_packet.pictures;
        --m_pictures.now;
    }
}

void PackerCounts::finishPacket(AddingTimes::Clock::time_point now, std::uint32_t taken, std::uint32_t size,
                                std::uint32_t records)
{
    m_sent.bytes += taken;
    if (taken < size) {
        ++m_sent.cutPackets;
        m_sent.cutRecords += records;
        dropPacket();
        return;
    }
    ++m_sent.packets;
    m_sent.records += records;
    m_sent.slices += m_packet.slices;
    m_sent.pictureBytes += m_packet.pictureBytes;
    m_sent.pictures += m_packet.pictures;
    for (const AddingTimes::Mark& mark : m_times.getPacket())
        m_timesToTaken[placeOf(now - mark.time)] += mark.records;
    dropPacket();
}

void PackerCounts::dropPacket()
{
    m_times.dropPacket();
    m_packet = {};
}

PriorityPacker::Progress PackerCounts::readProgress() const
{
    PriorityPacker::Progress progress;
    progress.waitingPictures = m_pictures.now;
    progress.endedPackets = m_sent.packets + m_sent.cutPackets;
    progress.cutPackets = m_sent.cutPackets;
    return progress;
}

void PackerCounts::read(DeviceStatistics& statistics) const
{
    // These two the packer never sees.
    const std::uint64_t emptySends = statistics.sent.emptySends;
    const TransferFailures failures = statistics.sent.failures;
    statistics.sent = m_sent;
    statistics.sent.emptySends = emptySends;
    statistics.sent.failures = failures;
    statistics.pictures = m_pictures;
    statistics.timesToTaken = m_timesToTaken;
}

} // namespace Vantor
