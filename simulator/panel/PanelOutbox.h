#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <optional>
#include <vector>

namespace Vantor {

// The packets that wait for the host, cut into reads as a bus with 512-byte packets
// cuts them.
//
// A transfer holds the oldest packet and those behind it that fit the read with it.
// A packet larger than the read goes on in the next reads; when the read is no
// multiple of 512 bytes it overflows instead, and the rest of the packet is lost.
// A transfer that ends on a 512-byte boundary is followed by a zero-length packet:
// it ends the same read, or, if that read is full, the next one, with 0 bytes.
//
// Threads: one at a time.
class PanelOutbox {
public:
    static constexpr std::uint32_t busPacket = 512; // of a high-speed bulk endpoint

    struct Chunk {
        int status = 0; // 0 or -EOVERFLOW
        std::vector<std::uint8_t> bytes;
        std::uint32_t packets = 0; // that this read completes
    };

    static constexpr std::uint32_t noLimit = std::numeric_limits<std::uint32_t>::max();

    void add(std::vector<std::uint8_t> packet);
    void clear();
    bool isEmpty() const;

    // The next read's bytes; the outbox must not be empty. At most `limit` of them
    // are given: what a lower limit cuts off the transfer is lost.
    Chunk take(std::uint32_t capacity, std::uint32_t limit = noLimit);

private:
    struct Transfer {
        std::vector<std::uint8_t> bytes;
        std::vector<std::size_t> packetEnds;
    };

    Transfer gather(std::uint32_t capacity);

    std::deque<std::vector<std::uint8_t>> m_packets;
    std::optional<Transfer> m_open; // begun by an earlier read
};

} // namespace Vantor
