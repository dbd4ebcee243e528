#include "panel2mqtt/broker/PublishWindow.h"

#include <utility>

namespace Vantor {

bool PublishWindow::hasRoomFor(std::size_t size, bool isBusy) const
{
    return m_items.empty() || (m_items.size() < (isBusy ? maxBusy : maxMessages) && m_bytes + size <= maxBytes);
}

void PublishWindow::add(int id, Item item)
{
    complete(id); // an id that has come round
    m_bytes += OutgoingQueue::sizeOf(item.message);
    m_items.emplace(id, std::move(item));
}

std::optional<PublishWindow::Item> PublishWindow::complete(int id)
{
    auto node = m_items.extract(id);
    if (node.empty())
        return std::nullopt;
    m_bytes -= OutgoingQueue::sizeOf(node.mapped().message);
    return std::move(node.mapped());
}

std::vector<PublishWindow::Item> PublishWindow::takeAll()
{
    std::vector<Item> items;
    for (auto& [id, item] : m_items)
        items.push_back(std::move(item));
    m_items.clear();
    m_bytes = 0;
    return items;
}

} // namespace Vantor
