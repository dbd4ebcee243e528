#pragma once

#include "protocol/PacketType.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Vantor {

// The last records that crossed a bus, each with its first bytes.
//
// Threads: one at a time.
class RecordRing {
public:
    static constexpr std::size_t capacity = 4096;
    static constexpr std::size_t keptBytes = 32;

    enum class Way : std::uint8_t {
        Out, // the panel received it
        In,  // the panel sent it
    };

    struct Entry {
        std::chrono::nanoseconds time;
        std::uint32_t size;
        std::uint8_t type;
        std::uint8_t panel;
        Way way;
        std::array<std::uint8_t, keptBytes> bytes; // of which `size` count
    };

    RecordRing();

    void add(std::chrono::nanoseconds time, unsigned int panel, Way way, PacketType type,
             const std::vector<std::uint8_t>& payload);

    // Numbers of records: from the first that is still there to the next one to come.
    std::uint64_t getFirst() const { return m_count > capacity ? m_count - capacity : 0; }
    std::uint64_t getNext() const { return m_count; }

    // Of a record that is still there.
    const Entry& get(std::uint64_t number) const { return m_entries[number % capacity]; }

private:
    std::vector<Entry> m_entries;
    std::uint64_t m_count = 0;
};

} // namespace Vantor
