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
    m_items.emplace(id, Entry{std::move(item), now});
}

std::optional<PublishWindow::Item> PublishWindow::complete(int id)
{
    auto node = m_items.extract(id);
    if (node.empty())
        return std::nullopt;
    m_bytes -= OutgoingQueue::sizeOf(node.mapped().item.message);
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
