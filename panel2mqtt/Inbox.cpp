#include "panel2mqtt/Inbox.h"

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
    push(std::move(news));
}

bool Inbox::addMessage(Message& message)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const std::size_t size = sizeOf(message);
    if (m_messages == mostMessages || m_bytes + size > mostBytes)
        return false;
    ++m_messages;
    m_bytes += size;
    push(std::move(message));
    return true;
}

// Signalled once: a flood would cost a write for each.
void Inbox::push(Item item)
{
    if (m_items.empty())
        eventfd_write(m_signal, 1);
    m_items.push_back(std::move(item));
}

std::vector<Inbox::Item> Inbox::take()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<Item> taken;
    for (; !m_items.empty() && taken.size() < mostAtOnce; m_items.pop_front()) {
        taken.push_back(std::move(m_items.front()));
        if (const auto* const message = std::get_if<Message>(&taken.back())) {
            --m_messages;
            m_bytes -= sizeOf(*message);
        }
    }
    eventfd_t count = 0;
    if (m_items.empty())
        eventfd_read(m_signal, &count);
    return taken;
}

} // namespace Vantor
