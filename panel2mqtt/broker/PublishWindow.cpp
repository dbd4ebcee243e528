#include "panel2mqtt/broker/PublishWindow.h"

#include <algorithm>
#include <utility>

namespace Vantor {

bool PublishWindow::hasRoomFor(std::size_t size, bool isBusy) const
{
    return m_items.empty() || (m_items.size() < (isBusy ? maxBusy : maxMessages) && m_bytes + size <= maxBytes);
}

void PublishWindow::add(int id, Item item, TimePoint now)
{
    complete(id); // an id that has come round
    m_bytes += OutgoingQueue::sizeOf(item.message);
    m_items.emplace(id, Entry{std::move(item), now, ++m_lastNumber});
}

std::optional<PublishWindow::Item> PublishWindow::complete(int id)
{
    forgetOvertaken(id);
    auto node = m_items.extract(id);
    if (node.empty())
        return std::nullopt;
    m_bytes -= OutgoingQueue::sizeOf(node.mapped().item.message);
    // Of QoS 0 it is complete when it is written.
    if (node.mapped().item.message.qos > 0)
        m_lastComplete = std::max(m_lastComplete, node.mapped().number);
    return std::move(node.mapped().item);
}

bool PublishWindow::hasLater(const Item& state) const
{
    return std::any_of(m_items.begin(), m_items.end(), [&state](const auto& entry) {
        const Item& item = entry.second.item;
        return item.kind == BrokerLink::Kind::State && item.number > state.number &&
               item.message.topic == state.message.topic;
    });
}

PublishWindow::TimePoint PublishWindow::getOldest() const
{
    TimePoint oldest = TimePoint::max();
    for (const auto& [id, entry] : m_items)
        oldest = std::min(oldest, entry.since);
    return oldest;
}

std::vector<PublishWindow::Item> PublishWindow::takeOvertaken(TimePoint now)
{
    std::vector<Item> items;
    for (auto entry = m_items.begin(); entry != m_items.end();) {
        if (entry->second.number > m_lastComplete) {
            ++entry;
            continue;
        }
        m_bytes -= OutgoingQueue::sizeOf(entry->second.item.message);
        items.push_back(std::move(entry->second.item));
        m_overtaken.insert_or_assign(entry->first, now);
        m_overtakings.emplace_back(entry->first, now);
        entry = m_items.erase(entry);
    }
    return items;
}

void PublishWindow::forgetOvertaken(int id)
{
    m_overtaken.erase(id);
    const auto isOver = [this](const std::pair<int, TimePoint>& overtaking) {
        const auto known = m_overtaken.find(overtaking.first);
        return known == m_overtaken.end() || known->second != overtaking.second;
    };
    while (!m_overtakings.empty() && isOver(m_overtakings.front()))
        m_overtakings.pop_front();
}

PublishWindow::TimePoint PublishWindow::getOldestOvertaken() const
{
    return m_overtakings.empty() ? TimePoint::max() : m_overtakings.front().second;
}

std::vector<PublishWindow::Item> PublishWindow::takeAll()
{
    std::vector<Item> items;
    for (auto& [id, entry] : m_items)
        items.push_back(std::move(entry.item));
    m_items.clear();
    m_bytes = 0;
    return items;
}

} // namespace Vantor
