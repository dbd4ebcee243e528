#pragma once

#include "panel2mqtt/broker/OutgoingQueue.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <utility>
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

    // Those behind which another is complete. A broker confirms in the order of coming: it has
    // got them, and their confirmation is lost, unless it is completed after all.
    std::vector<Item> takeOvertaken(TimePoint now);
    // When the oldest of those was taken; TimePoint::max(): there is none.
    TimePoint getOldestOvertaken() const;

private:
    struct Entry {
        Item item;
        TimePoint since;
        std::uint64_t number; // in the order of coming
    };

    void forgetOvertaken(int id);

    std::map<int, Entry> m_items;
    std::map<int, TimePoint> m_overtaken;
    std::deque<std::pair<int, TimePoint>> m_overtakings; // in the order of time, some of which are over
    std::size_t m_bytes = 0;
    std::uint64_t m_lastNumber = 0;
    std::uint64_t m_lastComplete = 0; // of those that are confirmed
};

} // namespace Vantor
