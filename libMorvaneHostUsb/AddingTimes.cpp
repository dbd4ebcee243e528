#include "libMorvaneHostUsb/AddingTimes.h"

#include <algorithm>
#include <new>

namespace Vantor {

AddingTimes::Marks& AddingTimes::marksOf(const PacketType& type) noexcept
{
    const auto value = static_cast<std::uint32_t>(type);
    return m_waiting[std::min<std::size_t>(value, packetTypeCount)];
}

bool AddingTimes::append(Marks& marks, const Mark& mark) noexcept
{
    try {
        const std::size_t room = m_packet.size() + 2 * (m_waitingMarks + 1);
        if (m_packet.capacity() < room)
            m_packet.reserve(2 * room);
        marks.marks.push_back(mark);
        ++m_waitingMarks;
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void AddingTimes::beginRun(const PacketType& type, bool isPacketUnderWay) noexcept
{
    endRun();
    m_addedType = type;
    if (m_usesLeft == 0) {
        // Whoever adds to an idle link sends at once, and tells the time then.
        Marks& marks = marksOf(type);
        if (!isPacketUnderWay && m_timeless == nullptr && append(marks, {{}, 1})) {
            m_timeless = &marks;
            return;
        }
        setTime(Clock::now());
    }
    --m_usesLeft;
    m_added = 1;
}

void AddingTimes::endRun() noexcept
{
    if (m_added == 0)
        return;
    Marks& marks = marksOf(m_addedType);
    if (marks.first < marks.marks.size() && marks.marks.back().time == m_now)
        marks.marks.back().records += m_added;
    else
        append(marks, {m_now, m_added});
    m_added = 0;
}

void AddingTimes::setTime(Clock::time_point now) noexcept
{
    endRun();
    m_now = now;
    m_usesLeft = usesOfATime;
    if (m_timeless != nullptr)
        m_timeless->marks.back().time = now;
    m_timeless = nullptr;
}

void AddingTimes::pack(const PacketType& type, std::uint64_t records) noexcept
{
    Marks& from = marksOf(type);
    while (records != 0 && from.first < from.marks.size()) {
        Mark& oldest = from.marks[from.first];
        const std::uint64_t part = std::min(records, oldest.records);
        if (m_packet.size() < m_packet.capacity())
            m_packet.push_back({oldest.time, part});
        records -= part;
        oldest.records -= part;
        if (oldest.records == 0) {
            ++from.first;
            --m_waitingMarks;
        }
    }
    // Half of it is of no more use.
    if (2 * from.first >= from.marks.size()) {
        from.marks.erase(from.marks.begin(), from.marks.begin() + static_cast<std::ptrdiff_t>(from.first));
        from.first = 0;
    }
}

} // namespace Vantor
