#include "panel2mqtt/broker/OutgoingQueue.h"

#include <utility>

namespace Vantor {

std::size_t OutgoingQueue::sizeOf(const Message& message)
{
    // Fixed header, packet id, and the length of the properties, each at its longest.
    std::size_t size = 5 + 2 + 4;
    size += 2 + message.topic.size() + message.payload.size();
    if (!message.responseTopic.empty())
        size += 3 + message.responseTopic.size();
    if (message.correlation)
        size += 3 + message.correlation->size();
    if (message.expirySeconds)
        size += 5;
    for (const auto& [key, value] : message.userProperties)
        size += 5 + key.size() + value.size();
    return size;
}

OutgoingQueue::Dropped OutgoingQueue::add(Kind kind, Message message)
{
    const std::uint64_t number = ++m_lastNumber;
    if (kind == Kind::State) {
        const auto [topic, isNew] = m_topics.try_emplace(message.topic, number);
        // In its predecessor's place, lest one that changes all the time never gets its turn.
        m_states.insert_or_assign(topic->second, Item{kind, std::move(message), topic->second});
        return {};
    }
    m_bytes += sizeOf(message);
    queueOf(kind).push_back(Item{kind, std::move(message), number});
    Dropped dropped;
    while (isOverfull()) {
        std::deque<Item>& first = !m_busy.empty() ? m_busy : !m_events.empty() ? m_events : m_answers;
        takeFrom(first).kind == Kind::Event ? ++dropped.events : ++dropped.answers;
    }
    return dropped;
}

std::optional<std::size_t> OutgoingQueue::getNextSize() const
{
    const Item* const next = findNext();
    if (next == nullptr)
        return std::nullopt;
    return sizeOf(next->message);
}

bool OutgoingQueue::isNextBusy() const
{
    const Item* const next = findNext();
    return next != nullptr && next->kind == Kind::Busy;
}

OutgoingQueue::Item OutgoingQueue::take()
{
    const Kind kind = findNext()->kind;
    if (kind != Kind::State)
        return takeFrom(queueOf(kind));
    Item item = std::move(m_states.begin()->second);
    m_states.erase(m_states.begin());
    m_topics.erase(item.message.topic);
    return item;
}

void OutgoingQueue::putBack(Item state)
{
    const std::uint64_t number = state.number;
    const auto [topic, isNew] = m_topics.try_emplace(state.message.topic, number);
    if (!isNew && topic->second > number)
        return;
    if (!isNew)
        m_states.erase(std::exchange(topic->second, number));
    m_states.emplace(number, std::move(state));
}

OutgoingQueue::Dropped OutgoingQueue::dropAllButStates()
{
    const Dropped dropped = {m_events.size(), m_busy.size() + m_answers.size()};
    m_busy.clear();
    m_events.clear();
    m_answers.clear();
    m_bytes = 0;
    return dropped;
}

const OutgoingQueue::Item* OutgoingQueue::findNext() const
{
    const Item* next = m_states.empty() ? nullptr : &m_states.begin()->second;
    for (const std::deque<Item>* items : {&m_events, &m_answers}) {
        if (!items->empty() && (next == nullptr || items->front().number < next->number))
            next = &items->front();
    }
    return next != nullptr || m_busy.empty() ? next : &m_busy.front();
}

bool OutgoingQueue::isOverfull() const
{
    return m_busy.size() + m_events.size() + m_answers.size() > maxMessages || m_bytes > maxBytes;
}

// Of anything but a state.
std::deque<OutgoingQueue::Item>& OutgoingQueue::queueOf(Kind kind)
{
    return kind == Kind::Busy ? m_busy : kind == Kind::Event ? m_events : m_answers;
}

OutgoingQueue::Item OutgoingQueue::takeFrom(std::deque<Item>& items)
{
    Item item = std::move(items.front());
    items.pop_front();
    m_bytes -= sizeOf(item.message);
    return item;
}

} // namespace Vantor
