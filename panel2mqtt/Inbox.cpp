#include "panel2mqtt/Inbox.h"

#include "panel2mqtt/desk/Order.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

namespace Vantor {

namespace {

std::size_t sizeOf(const Message& message)
{
    return message.topic.size() + message.payload.size();
}

std::size_t sizeOf(const Inbox::Item& item)
{
    const auto* const message = std::get_if<Message>(&item);
    return message != nullptr ? sizeOf(*message) : 0;
}

} // namespace

Inbox::Inbox() : m_signal(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (m_signal < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
}

Inbox::~Inbox()
{
    close(m_signal);
}

void Inbox::add(Item news)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    push(m_others, std::move(news));
}

bool Inbox::addMessage(Message& message)
{
    const std::string_view place = findCommandedPlace(message.topic);
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!hasRoomFor(sizeOf(message), place))
        return false;
    Line& line = place.empty() ? m_others : lineOf(place);
    ++m_messages;
    push(line, std::move(message));
    return true;
}

bool Inbox::hasRoomFor(std::size_t size, std::string_view place) const
{
    if (m_messages == mostMessages || m_bytes + size > mostBytes)
        return false;
    const auto line = m_lines.find(place);
    return line == m_lines.end() ||
           (line->second.items.size() < mostMessagesOfPlace && line->second.bytes + size <= mostBytesOfPlace);
}

Inbox::Line& Inbox::lineOf(std::string_view place)
{
    const auto known = m_lines.find(place);
    if (known != m_lines.end())
        return known->second;
    m_turns.emplace_back(place);
    return m_lines[m_turns.back()];
}

// Signalled once: a flood would cost a write for each.
void Inbox::push(Line& line, Item item)
{
    if (m_items == 0)
        eventfd_write(m_signal, 1);
    ++m_items;
    const std::size_t size = sizeOf(item);
    m_bytes += size;
    line.bytes += size;
    line.items.push_back({++m_lastNumber, std::move(item)});
    m_lowestNumber = std::min(m_lowestNumber, m_lastNumber);
}

std::vector<Inbox::Item> Inbox::take()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<Item> taken;
    while (taken.size() < mostAtOnce) {
        std::optional<Item> next = takeNext();
        if (!next)
            break;
        taken.push_back(std::move(*next));
    }
    eventfd_t count = 0;
    if (m_items == 0)
        eventfd_read(m_signal, &count);
    return taken;
}

std::optional<Inbox::Item> Inbox::takeNext()
{
    const std::uint64_t end = m_others.items.empty() ? UINT64_MAX : m_others.items.front().number;
    if (m_lowestNumber < end) {
        if (std::optional<Item> item = takeTurn(end))
            return item;
    }
    if (m_others.items.empty())
        return std::nullopt;
    return takeFrom(m_others);
}

// Of what came before the end.
std::optional<Inbox::Item> Inbox::takeTurn(std::uint64_t end)
{
    std::uint64_t lowest = UINT64_MAX;
    for (auto turn = m_turns.begin(); turn != m_turns.end(); ++turn) {
        const auto line = m_lines.find(*turn);
        const std::uint64_t number = line->second.items.front().number;
        if (number > end) {
            lowest = std::min(lowest, number);
            continue;
        }
        m_turns.splice(m_turns.end(), m_turns, turn);
        Item item = takeFrom(line->second);
        if (line->second.items.empty()) {
            m_lines.erase(line);
            m_turns.pop_back();
        }
        return item;
    }
    m_lowestNumber = lowest;
    return std::nullopt;
}

Inbox::Item Inbox::takeFrom(Line& line)
{
    Item item = std::move(line.items.front().item);
    line.items.pop_front();
    const std::size_t size = sizeOf(item);
    line.bytes -= size;
    m_bytes -= size;
    --m_items;
    if (std::holds_alternative<Message>(item))
        --m_messages;
    return item;
}

} // namespace Vantor
