#include "panel2mqtt/desk/WishBook.h"

#include <vector>

namespace Vantor {

std::size_t WishBook::sizeOf(const Message& message)
{
    std::size_t size = message.topic.size() + message.payload.size() + message.responseTopic.size() +
                       message.correlation.value_or("").size();
    for (const auto& [name, value] : message.userProperties)
        size += name.size() + value.size();
    return size;
}

bool WishBook::put(const Order& order, Message message)
{
    const Scope scope{order.isForEveryHost, order.place};
    const Order::Subject subject = order.getSubject();
    Entry* const known = findEntry(scope, subject);
    if (message.payload.empty()) {
        if (known != nullptr)
            drop(scope, subject);
        return true;
    }
    // What is told anew is the wish as it was; what is published again is meant again.
    if (known != nullptr && !known->isTold && known->wish.message.payload == message.payload &&
        known->wish.message.userProperties == message.userProperties) {
        known->isTold = true;
        return true;
    }
    const std::size_t size = sizeOf(message);
    const std::size_t freed = known != nullptr ? sizeOf(known->wish.message) : 0;
    if (m_bytes - freed + size > mostBytes || (known == nullptr && m_number == mostWishes))
        return false;
    m_bytes += size - freed;
    m_number += known == nullptr ? 1 : 0;
    m_wishes[scope][subject] = {{std::move(message), ++m_last}, true};
    return true;
}

WishBook::Entry* WishBook::findEntry(const Scope& scope, const Order::Subject& subject)
{
    const auto wishes = m_wishes.find(scope);
    if (wishes == m_wishes.end())
        return nullptr;
    const auto entry = wishes->second.find(subject);
    return entry != wishes->second.end() ? &entry->second : nullptr;
}

void WishBook::drop(const Scope& scope, const Order::Subject& subject)
{
    const auto wishes = m_wishes.find(scope);
    const auto entry = wishes->second.find(subject);
    --m_number;
    m_bytes -= sizeOf(entry->second.wish.message);
    wishes->second.erase(entry);
    if (wishes->second.empty())
        m_wishes.erase(wishes);
}

const WishBook::Wish* WishBook::find(const std::string& place, const Order::Subject& subject) const
{
    for (const Scope& scope : {Scope{false, place}, Scope{true, place}, Scope{false, ""}, Scope{true, ""}}) {
        const auto wishes = m_wishes.find(scope);
        if (wishes == m_wishes.end())
            continue;
        const auto entry = wishes->second.find(subject);
        if (entry != wishes->second.end())
            return &entry->second.wish;
    }
    return nullptr;
}

std::set<Order::Subject> WishBook::getSubjects(const std::string& place) const
{
    std::set<Order::Subject> subjects;
    for (const auto& [scope, wishes] : m_wishes) {
        if (!scope.second.empty() && scope.second != place)
            continue;
        for (const auto& [subject, entry] : wishes)
            subjects.insert(subject);
    }
    return subjects;
}

void WishBook::beginTelling()
{
    for (auto& [scope, wishes] : m_wishes) {
        for (auto& [subject, entry] : wishes)
            entry.isTold = false;
    }
}

void WishBook::endTelling()
{
    std::vector<std::pair<Scope, Order::Subject>> gone;
    for (const auto& [scope, wishes] : m_wishes) {
        for (const auto& [subject, entry] : wishes) {
            if (!entry.isTold)
                gone.emplace_back(scope, subject);
        }
    }
    for (const auto& [scope, subject] : gone)
        drop(scope, subject);
}

} // namespace Vantor
