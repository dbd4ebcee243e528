#include "simulator/panelsim/LoopCalls.h"

#include <cerrno>
#include <cstddef>
#include <system_error>

#include <sys/eventfd.h>

namespace Vantor {

LoopCalls::LoopCalls() : m_wanted(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (m_wanted.get() < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
}

// Not analysed: a condition needs std::unique_lock, which carries no annotation.
bool LoopCalls::call(const std::function<void()>& deed) MORVANE_NO_THREAD_SAFETY_ANALYSIS
{
    if (std::this_thread::get_id() == m_owner) {
        deed();
        return true;
    }
    Call call{deed};
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_hasEnded)
        return false;
    m_calls.push_back(&call);
    eventfd_write(m_wanted.get(), 1);
    // `end` forgets those that wait; it can't come while one is being done.
    m_served.wait(lock, [this, &call]() MORVANE_REQUIRES(m_mutex) { return call.isDone || m_hasEnded; });
    return call.isDone;
}

// Nor is this: it lets go of the lock meanwhile.
void LoopCalls::serve() MORVANE_NO_THREAD_SAFETY_ANALYSIS
{
    eventfd_t count = 0;
    eventfd_read(m_wanted.get(), &count);
    std::unique_lock<std::mutex> lock(m_mutex);
    // Those that come meanwhile have the next turn.
    for (std::size_t left = m_calls.size(); left > 0; --left) {
        Call& call = *m_calls.front();
        m_calls.pop_front();
        lock.unlock();
        call.deed();
        lock.lock();
        call.isDone = true;
        m_served.notify_all();
    }
}

void LoopCalls::end()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_hasEnded = true;
    m_calls.clear();
    m_served.notify_all();
}

} // namespace Vantor
