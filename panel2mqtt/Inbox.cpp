#include "panel2mqtt/Inbox.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

namespace Vantor {

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
    m_items.push_back(std::move(news));
    eventfd_write(m_signal, 1);
}

bool Inbox::addMessage(Message& message)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const std::size_t size = message.topic.size() + message.payload.size();
    if (m_messages == mostMessages || m_bytes + size > mostBytes)
        return false;
    ++m_messages;
    m_bytes += size;
    m_items.emplace_back(std::move(message));
    eventfd_write(m_signal, 1);
    return true;
}

std::vector<Inbox::Item> Inbox::take()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    eventfd_t count = 0;
    eventfd_read(m_signal, &count);
    m_messages = 0;
    m_bytes = 0;
    return std::exchange(m_items, {});
}

} // namespace Vantor
