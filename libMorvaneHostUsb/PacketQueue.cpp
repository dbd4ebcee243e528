#include "libMorvaneHostUsb/PacketQueue.h"

#include "libMorvaneHostUsb/PriorityPacker.h"

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

} // namespace

PacketQueue::PacketQueue() : m_keyedData(static_cast<std::size_t>(packetTypeCount)) {}

void PacketQueue::addStructData(std::vector<unsigned char> data, const PacketType& type)
{
    m_queuedData[type].push_back(std::move(data));
}

void PacketQueue::addStructData(std::vector<unsigned char> data, const PacketType& type, const unsigned int& key)
{
    if (!isAssigned(type) || isWaiting(data, type, key))
        return;
    // In this order: a pending key without a value is passed over when packing, but a
    // value whose key is not pending would have later writes dropped as duplicates.
    m_pendingKeys[type].insert(key);
    m_keyedData[static_cast<std::size_t>(type)][key] = std::move(data);
}

bool PacketQueue::isWaiting(const std::vector<unsigned char>& data, const PacketType& type, unsigned int key) const
{
    if (isExemptFromDuplicateTest(type) || data.size() > duplicateTestLimit)
        return false;
    const auto& values = m_keyedData[static_cast<std::size_t>(type)];
    const auto waiting = values.find(key);
    return waiting != values.end() && waiting->second == data;
}

bool PacketQueue::hasMoreData() const
{
    return !m_pendingKeys.empty() || !m_queuedData.empty();
}

bool PacketQueue::prepareNextPacket(PriorityPacker& packer, unsigned int& count)
{
    return packKeyed(packer, count) && packQueued(packer, count);
}

bool PacketQueue::packKeyed(PriorityPacker& packer, unsigned int& count)
{
    for (auto pending = m_pendingKeys.begin(); pending != m_pendingKeys.end(); pending = m_pendingKeys.erase(pending)) {
        if (!isAssigned(pending->first))
            continue; // required; none is ever stored
        auto& values = m_keyedData[static_cast<std::size_t>(pending->first)];
        auto& keys = pending->second;
        while (!keys.empty()) {
            const auto value = values.find(*keys.begin());
            if (value != values.end()) {
                if (packer._addStructData(pending->first, value->second) == 0)
                    return false;
                values.erase(value);
                ++count;
            }
            keys.erase(keys.begin());
        }
    }
    return true;
}

bool PacketQueue::packQueued(PriorityPacker& packer, unsigned int& count)
{
    for (auto queued = m_queuedData.begin(); queued != m_queuedData.end(); queued = m_queuedData.erase(queued)) {
        auto& records = queued->second;
        while (!records.empty()) {
            if (packer._addStructData(queued->first, records.front()) == 0)
                return false;
            records.pop_front();
            ++count;
        }
    }
    return true;
}

} // namespace Vantor
