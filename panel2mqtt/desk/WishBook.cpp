#include "panel2mqtt/desk/WishBook.h"

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
    Wishes& wishes = m_wishes[{order.isForEveryHost, order.place}];
    const auto known = wishes.find(order.getSubject());
    const std::size_t size = sizeOf(message);
    const std::size_t freed = known != wishes.end() ? sizeOf(known->second.wish.message) : 0;
    if (message.payload.empty()) {
        if (known == wishes.end())
            return true;
        wishes.erase(known);
        --m_number;
        m_bytes -= freed;
        return true;
    }
    if (known != wishes.end() && known->second.wish.message.payload == message.payload &&
        known->second.wish.message.userProperties == message.userProperties) {
        known->second.isTold = true;
        return true;
    }
    if (m_bytes - freed + size > mostBytes || (known == wishes.end() && m_number == mostWishes))
        return false;
    m_bytes += size - freed;
    m_number += known == wishes.end() ? 1 : 0;
    wishes[order.getSubject()] = {{std::move(message), ++m_last}, true};
    return true;
}

const WishBook::Wish* WishBook::find(const std::string& place, const Order::Subject& subject) const
{
    for (const Scope& scope : {Scope{false, place}, Scope{false, ""}, Scope{true, place}, Scope{true, ""}}) {
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
    for (auto& [scope, wishes] : m_wishes) {
        for (auto entry = wishes.begin(); entry != wishes.end();) {
            if (entry->second.isTold) {
                ++entry;
                continue;
            }
            --m_number;
            m_bytes -= sizeOf(entry->second.wish.message);
            entry = wishes.erase(entry);
        }
    }
}

} // namespace Vantor
