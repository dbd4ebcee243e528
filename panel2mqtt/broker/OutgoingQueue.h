#pragma once

#include "panel2mqtt/broker/BrokerLink.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>

namespace Vantor {

// What waits for the broker, in the order in which it came; who is only told to be busy comes
// last. A state takes the place of an earlier one of its topic.
//
// Threads: one at a time. Pure.
class OutgoingQueue {
public:
    using Kind = BrokerLink::Kind;

    // Of all but the states. Those are as many as there are topics.
    static constexpr std::size_t maxMessages = 4096;
    static constexpr std::size_t maxBytes = 16U << 20U;

    struct Item {
        Kind kind;
        Message message;
        std::uint64_t number; // in the order of coming
    };

    // What was left out for want of room, or of a connection.
    struct Dropped {
        std::uint64_t events = 0;
        std::uint64_t answers = 0;
    };

    // What a message takes up at the broker at the most, and about that much in here.
    static std::size_t sizeOf(const Message& message);

    Dropped add(Kind kind, Message message);

    // The size of what comes next; none: nothing waits.
    std::optional<std::size_t> getNextSize() const;
    // Nothing waits but those who are only told to be busy.
    bool isNextBusy() const;
    Item take();

    // A state that was taken and did not reach the broker: to be taken first again, unless
    // there is a later one of its topic. Of two that are put back the later counts, too.
    void putBack(Item state);

    Dropped dropAllButStates();

    bool hasStates() const { return !m_states.empty(); }
    bool hasState(const std::string& topic) const { return m_topics.count(topic) != 0; }
    std::size_t getCount() const { return m_busy.size() + m_events.size() + m_answers.size() + m_states.size(); }

private:
    const Item* findNext() const;
    bool isOverfull() const;
    std::deque<Item>& queueOf(Kind kind);
    Item takeFrom(std::deque<Item>& items);

    std::deque<Item> m_busy;
    std::deque<Item> m_events;
    std::deque<Item> m_answers;
    std::map<std::uint64_t, Item> m_states;                  // by number
    std::unordered_map<std::string, std::uint64_t> m_topics; // of the states
    std::size_t m_bytes = 0;                                 // of all but the states
    std::uint64_t m_lastNumber = 0;
};

} // namespace Vantor
