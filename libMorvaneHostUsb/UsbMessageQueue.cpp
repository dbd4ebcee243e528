#include "libMorvaneHostUsb/UsbMessageQueue.h"

#include <chrono>
#include <utility>

namespace Vantor {

UsbMessageQueue::UsbMessageQueue() : m_alive(true) {}

UsbMessageQueue::~UsbMessageQueue()
{
    kill();
    // A thread still inside getMessage leaves its wait before the condition goes.
    const std::lock_guard<std::mutex> lock(m_mutex);
}

void UsbMessageQueue::addMessage(std::unique_ptr<UsbMessage> message)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_messages.push_back(std::move(message));
    m_condition.notify_one();
}

int UsbMessageQueue::size()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<int>(m_messages.size());
}

// Not analysed: a condition needs std::unique_lock, which carries no annotation.
std::unique_ptr<UsbMessage> UsbMessageQueue::getMessage() MORVANE_NO_THREAD_SAFETY_ANALYSIS
{
    std::unique_lock<std::mutex> lock(m_mutex);
    // kill takes no lock, so its notification can be missed: the wait is bounded.
    while (m_messages.empty() && m_alive)
        m_condition.wait_until(lock, std::chrono::system_clock::now() + std::chrono::seconds(1));

    if (!m_alive || m_messages.empty())
        return nullptr;
    std::unique_ptr<UsbMessage> message = std::move(m_messages.front());
    m_messages.pop_front();
    return message;
}

void UsbMessageQueue::kill()
{
    m_alive.exchange(false); // required; a store would do
    m_condition.notify_all();
}

} // namespace Vantor
