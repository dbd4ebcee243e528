#pragma once

#include "protocol/PacketType.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Vantor {

// When the records that wait were added, so many at a time, and when those of the packet
// under way were. Of one type the first added counts as the first packed.
//
// It is asked at every record, so it looks at the clock when it must alone: once for many
// records while a packet is under way, and not at all for one that is sent at once. Memory
// that it can't get costs a time, nothing else.
//
// Threads: no locking of its own. Lifetime: a member of its PackerCounts.
class AddingTimes {
public:
    using Clock = std::chrono::system_clock;

    struct Mark {
        Clock::time_point time;
        std::uint64_t records;
    };

    void add(const PacketType& type, bool isPacketUnderWay) noexcept
    {
        if (m_usesLeft == 0 || type != m_addedType) {
            beginRun(type, isPacketUnderWay);
        } else {
            --m_usesLeft;
            ++m_added;
        }
    }

    // What is added from now on, while a packet is under way, is added at `now`.
    void setTime(Clock::time_point now) noexcept;
    void forgetTime() noexcept { m_usesLeft = 0; }

    // So many records of the type are in the packet now; nothing was added since setTime.
    void pack(const PacketType& type, std::uint64_t records) noexcept;

    // The records of the packet, until it is dropped.
    const std::vector<Mark>& getPacket() const { return m_packet; }
    void dropPacket() noexcept
    {
        m_packet.clear();
        forgetTime();
    }

private:
    static constexpr unsigned int usesOfATime = 64;

    struct Marks {
        std::vector<Mark> marks;
        std::size_t first = 0;
    };

    Marks& marksOf(const PacketType& type) noexcept;
    void beginRun(const PacketType& type, bool isPacketUnderWay) noexcept;
    void endRun() noexcept;
    bool append(Marks& marks, const Mark& mark) noexcept;

    std::array<Marks, packetTypeCount + 1> m_waiting; // the last is of all types beyond
    std::size_t m_waitingMarks = 0;
    Clock::time_point m_now;
    unsigned int m_usesLeft = 0;
    Marks* m_timeless = nullptr; // where the last mark waits for its time

    // The run of records of one type that was added last, at m_now, and is in no mark yet.
    PacketType m_addedType{};
    std::uint64_t m_added = 0;

    // Has room for all that waits, twice as a mark may come in parts: packing allocates nothing.
    std::vector<Mark> m_packet;
};

} // namespace Vantor
