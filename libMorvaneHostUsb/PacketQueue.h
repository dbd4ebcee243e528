#pragma once

#include "protocol/PacketType.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <vector>

namespace Vantor {

class PriorityPacker;

// Records that wait to be packed: keyed (the latest value per type and key) or
// queued (every write, in order per type).
//
// Threads: no locking of its own; its PriorityPacker calls it under its data
// mutex. Lifetime: a member of its PriorityPacker.
class PacketQueue {
public:
    // Since construction, but for what waits now.
    struct Counts {
        std::size_t waiting = 0;
        std::size_t mostWaiting = 0;  // before the last prepareNextPacket
        std::uint64_t superseded = 0; // values in whose place a later one came
        std::uint64_t duplicates = 0; // writes that were dropped
    };

    PacketQueue();

    // Queued write: appended behind the type's earlier ones.
    void addStructData(std::vector<unsigned char> data, const PacketType& type);

    // Keyed write: replaces the value that waits under this type and key. Dropped
    // when that value is the same, has at most 63 bytes, and the type is not 8,
    // 19, 20 or 24. A type outside 0 to 46 is ignored.
    void addStructData(std::vector<unsigned char> data, const PacketType& type, const unsigned int& key);

    bool hasMoreData() const;

    // Moves waiting records into the packet that `packer` builds: keyed ones by
    // ascending type and key, then queued ones by ascending type in order of
    // arrival. Adds 1 to `count` for each. True when the queue is empty now; false
    // at the first record that does not fit, which stays with all behind it.
    bool prepareNextPacket(PriorityPacker& packer, unsigned int& count);

    const Counts& getCounts() const { return m_counts; }

private:
    class Run;

    bool packKeyed(PriorityPacker& packer, unsigned int& count);
    bool packQueued(PriorityPacker& packer, unsigned int& count);

    // One map per type value, 0 to 46. A key is in m_pendingKeys[type] exactly when
    // m_keyedData[type] holds its value; a type has an entry in m_pendingKeys or
    // m_queuedData only while something waits.
    std::vector<std::map<unsigned int, std::vector<unsigned char>>> m_keyedData;
    std::map<PacketType, std::deque<std::vector<unsigned char>>> m_queuedData;
    std::map<PacketType, std::set<unsigned int>> m_pendingKeys;
    Counts m_counts;
};

} // namespace Vantor
