#pragma once

#include "libMorvaneHostUsb/AddingTimes.h"
#include "libMorvaneHostUsb/DeviceStatistics.h"
#include "libMorvaneHostUsb/PriorityPacker.h"
#include "protocol/PacketType.h"

#include <cstddef>
#include <cstdint>

namespace Vantor {

// What a PriorityPacker counts beside its queues: the pictures, the packet being built, and
// what has been taken.
//
// Threads: no locking of its own; under the packer's data mutex. Lifetime: its packer's.
class PackerCounts {
public:
    AddingTimes& getTimes() { return m_times; }

    void addPicture();
    void coverPictures(std::uint64_t number);

    // `pixelBytes` of a picture are in the packet now, and when it `isLast` the picture is whole.
    void packSlice(std::size_t pixelBytes, bool isLast);

    // The packet has gone: the panel took so many bytes of it, all or less.
    void finishPacket(AddingTimes::Clock::time_point now, std::uint32_t taken, std::uint32_t size,
                      std::uint32_t records);

    // It has not.
    void dropPacket();

    // Its part of it.
    PriorityPacker::Progress readProgress() const;

    // What it counts, into `statistics`.
    void read(DeviceStatistics& statistics) const;

private:
    struct Packet {
        std::uint64_t slices = 0;
        std::uint64_t pictureBytes = 0;
        std::uint64_t pictures = 0;
    };

    AddingTimes m_times;
    SendStatistics m_sent;
    WaitingStatistics m_pictures;
    Packet m_packet;
    std::array<std::uint64_t, DeviceStatistics::timePlaces> m_timesToTaken{};
};

} // namespace Vantor
