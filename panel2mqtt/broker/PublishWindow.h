#pragma once

#include "panel2mqtt/broker/OutgoingQueue.h"

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <vector>

namespace Vantor {

// What has been handed over and is not yet known to have reached the broker. It is bounded,
// as libmosquitto's own queue is not.
//
// Threads: one. Pure.
class PublishWindow {
public:
    using Item = OutgoingQueue::Item;
    using TimePoint = std::chrono::steady_clock::time_point;

    static constexpr std::size_t maxMessages = 64;
    static constexpr std::size_t maxBytes = 1U << 20U;

    // What only says `busy` goes a few at a time: in a flood the next answer waits for all that is
    // under way.
    static constexpr std::size_t maxBusy = 4;

    // A message that is larger than the whole window goes alone.
    bool hasRoomFor(std::size_t size, bool isBusy = false) const;

    void add(int id, Item item, TimePoint now);

    // None: no such message.
    std::optional<Item> complete(int id);

    // Whether a later state of its topic is among these.
    bool hasLater(const Item& state) const;

    // All that is left.
    std::vector<Item> takeAll();

    bool isEmpty() const { return m_items.empty(); }

    // When what has waited longest was added; TimePoint::max(): nothing waits.
    TimePoint getOldest() const;

private:
    struct Entry {
        Item item;
        TimePoint since;
    };

    std::map<int, Entry> m_items;
    std::size_t m_bytes = 0;
};

} // namespace Vantor
