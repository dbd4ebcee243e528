#include "libMorvaneHostUsb/PacketQueue.h"

#include "libMorvaneHostUsb/PriorityPacker.h"

#include <algorithm>
#include <utility>

namespace Vantor {

namespace {

constexpr std::size_t duplicateTestLimit = 63;

bool isAssigned(const PacketType& type)
{
    const auto value = static_cast<std::int32_t>(type);
    return value >= 0 && value < packetTypeCount;
}

// Every write of these types is sent, the same value twice included.
bool isExemptFromDuplicateTest(const PacketType& type)
{
    switch (static_cast<std::int32_t>(type)) {
    case 8:
    case 19:
    case 20:
    case 24:
        return true;
    default:
        return false;
    }
}

bool isDuplicate(const std::vector<unsigned char>& data, const std::vector<unsigned char>& waiting,
                 const PacketType& type)
{
    return data.size() <= duplicateTestLimit && data == waiting && !isExemptFromDuplicateTest(type);
}

// The values of one type up to the first that has not been packed. They leave the queue with
// their keys all at once, which takes less than one by one, when this is destroyed: also
// when the packer throws, exactly what has been packed is gone.
struct PackedValues {
    using Values = std::map<unsigned int, std::vector<unsigned char>>;

    PackedValues(Values& waiting, std::set<unsigned int>& pendingKeys)
        : values(waiting), keys(pendingKeys), end(values.begin())
    {}

    ~PackedValues()
    {
        keys.erase(keys.begin(), end == values.end() ? keys.end() : keys.lower_bound(end->first));
        values.erase(values.begin(), end);
    }

    PackedValues(const PackedValues&) = delete;
    PackedValues& operator=(const PackedValues&) = delete;

    Values& values;
    std::set<unsigned int>& keys;
    Values::iterator end;
};

} // namespace

// Records of one type that have been packed one after the other. They are counted all at
// once, also when the packer throws.
class PacketQueue::Run {
public:
    Run(PriorityPacker& packer, const PacketType& type, unsigned int& count, std::size_t& waiting)
        : m_packer(packer), m_type(type), m_count(count), m_waiting(waiting)
    {}

    ~Run()
    {
        m_count += m_records;
        m_waiting -= m_records;
        m_packer._countPacked(m_type, m_records);
    }

    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    // False: the packet is full.
    bool pack(const std::vector<unsigned char>& data)
    {
        if (m_packer._addStructData(m_type, data) == 0)
            return false;
        ++m_records;
        return true;
    }

private:
    PriorityPacker& m_packer;
    const PacketType& m_type;
    unsigned int& m_count;
    std::size_t& m_waiting;
    unsigned int m_records = 0;
};

PacketQueue::PacketQueue() : m_keyedData(static_cast<std::size_t>(packetTypeCount)) {}

void PacketQueue::addStructData(std::vector<unsigned char> data, const PacketType& type)
{
    m_queuedData[type].push_back(std::move(data));
    ++m_counts.waiting;
}

void PacketQueue::addStructData(std::vector<unsigned char> data, const PacketType& type, const unsigned int& key)
{
    if (!isAssigned(type))
        return;
    auto& values = m_keyedData[static_cast<std::size_t>(type)];
    const auto place = values.lower_bound(key);
    const bool isWaiting = place != values.end() && place->first == key;
    if (isWaiting && isDuplicate(data, place->second, type)) {
        ++m_counts.duplicates;
        return;
    }
    // In this order: a pending key without a value is passed over when packing, but a
    // value whose key is not pending would have later writes dropped as duplicates.
    m_pendingKeys[type].insert(key);
    if (isWaiting) {
        place->second = std::move(data);
        ++m_counts.superseded;
    } else {
        values.emplace_hint(place, key, std::move(data));
        ++m_counts.waiting;
    }
}

bool PacketQueue::hasMoreData() const
{
    return !m_pendingKeys.empty() || !m_queuedData.empty();
}

bool PacketQueue::prepareNextPacket(PriorityPacker& packer, unsigned int& count)
{
    m_counts.mostWaiting = std::max(m_counts.mostWaiting, m_counts.waiting);
    return packKeyed(packer, count) && packQueued(packer, count);
}

bool PacketQueue::packKeyed(PriorityPacker& packer, unsigned int& count)
{
    for (auto pending = m_pendingKeys.begin(); pending != m_pendingKeys.end(); pending = m_pendingKeys.erase(pending)) {
        if (!isAssigned(pending->first))
            continue; // required; none is ever stored
        // By the invariant the values stand in the order of the keys.
        PackedValues packed(m_keyedData[static_cast<std::size_t>(pending->first)], pending->second);
        Run run(packer, pending->first, count, m_counts.waiting);
        for (; packed.end != packed.values.end(); ++packed.end) {
            if (!run.pack(packed.end->second))
                return false;
        }
    }
    return true;
}

bool PacketQueue::packQueued(PriorityPacker& packer, unsigned int& count)
{
    for (auto queued = m_queuedData.begin(); queued != m_queuedData.end(); queued = m_queuedData.erase(queued)) {
        auto& records = queued->second;
        Run run(packer, queued->first, count, m_counts.waiting);
        while (!records.empty()) {
            if (!run.pack(records.front()))
                return false;
            records.pop_front();
        }
    }
    return true;
}

} // namespace Vantor
