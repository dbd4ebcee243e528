#pragma once

#include <chrono>
#include <cstdint>

namespace Vantor {

// The largest packet that a panel may be sent: what it has announced to the host, or the
// link's initial limit where it has announced nothing that hosts heed. Before that, what
// it is going to announce, as a host may know it from another time.
//
// Threads: one at a time.
class PacketLimit {
public:
    // In which a host may still send what it began before it knew of an announcement.
    static constexpr std::chrono::seconds grace{1};

    explicit PacketLimit(std::uint16_t toBeAnnounced);

    // The host has read that the limit is so many bytes.
    void announce(std::uint16_t bytes, std::chrono::nanoseconds now);

    std::uint32_t at(std::chrono::nanoseconds now) const;

private:
    std::uint32_t m_announced;
    std::uint32_t m_before; // holds until m_graceEnd beside it
    std::chrono::nanoseconds m_graceEnd = std::chrono::nanoseconds::max();
};

} // namespace Vantor
