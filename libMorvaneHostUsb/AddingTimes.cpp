#include "libMorvaneHostUsb/AddingTimes.h"

#include <algorithm>
#include <new>

namespace Vantor {

bool AddingTimes::append(Marks& marks, Clock::time_point time) noexcept
{
    try {
        const std::size_t room = m_packet.size() + 2 * (m_waitingMarks + 1);
        if (m_packet.capacity() < room)
            m_packet.reserve(2 * room);
        marks.marks.push_back({time, 1});
        ++m_waitingMarks;
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

AddingTimes::Marks& AddingTimes::marksOf(const PacketType& type) noexcept
{
    const auto value = static_cast<std::uint32_t>(type);
    return m_waiting[std::min<std::size_t>(value, packetTypeCount)];
}

void AddingTimes::add(const PacketType& type, bool isPacketUnderWay) noexcept
{
    Marks& marks = marksOf(type);
    if (m_usesLeft == 0) {
        // Whoever adds to an idle link sends at once, and tells the time then.
        if (!isPacketUnderWay && m_timeless == nullptr && append(marks, {})) {
            m_timeless = &marks;
            return;
        }
        setTime(Clock::now());
    }
    --m_usesLeft;
    if (marks.first < marks.marks.size() && marks.marks.back().time == m_now)
        ++marks.marks.back().records;
    else
        append(marks, m_now);
}

void AddingTimes::setTime(Clock::time_point now) noexcept
{
    m_now = now;
    m_usesLeft = usesOfATime;
    if (m_timeless != nullptr)
        m_timeless->marks.back().time = now;
    m_timeless = nullptr;
}

void AddingTimes::beginRun(const PacketType& type) noexcept
{
    endRun();
    m_packedType = type;
}

void AddingTimes::endRun() noexcept
{
    Marks& from = marksOf(m_packedType);
    while (m_packed != 0 && from.first < from.marks.size()) {
        Mark& oldest = from.marks[from.first];
        const std::uint64_t records = std::min(m_packed, oldest.records);
        if (m_packet.size() < m_packet.capacity())
            m_packet.push_back({oldest.time, records});
        m_packed -= records;
        oldest.records -= records;
        if (oldest.records == 0) {
            ++from.first;
            --m_waitingMarks;
        }
    }
    m_packed = 0;
    // Half of it is of no more use.
    if (2 * from.first >= from.marks.size()) {
        from.marks.erase(from.marks.begin(), from.marks.begin() + static_cast<std::ptrdiff_t>(from.first));
        from.first = 0;
    }
}

std::vector<AddingTimes::Mark>& AddingTimes::takePacket() noexcept
{
    endRun();
    forgetTime();
    return m_packet;
}

void AddingTimes::dropPacket() noexcept
{
    takePacket().clear();
}

} // namespace Vantor
