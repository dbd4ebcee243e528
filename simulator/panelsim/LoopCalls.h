#pragma once

#include "libMorvaneHostUsb/ThreadAnnotations.h"
#include "simulator/panelsim/Descriptor.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace Vantor {

// Has the thread that owns something do what others want of it, one thing after the other,
// in its loop.
//
// Threads: `call` from any; the rest from the one that has made it.
class LoopCalls {
public:
    // Throws std::system_error when there can be none.
    LoopCalls();

    // Returns when it has been done, or false when it never will be. The loop's own thread does
    // it at once, also behind the end.
    bool call(const std::function<void()>& deed);

    // Readable when somebody wants something.
    int getDescriptor() const { return m_wanted.get(); }

    void serve();

    // Nobody is served any more.
    void end();

private:
    struct Call {
        const std::function<void()>& deed;
        bool isDone = false;
    };

    const std::thread::id m_owner = std::this_thread::get_id();
    const Descriptor m_wanted;

    std::mutex m_mutex;
    std::condition_variable m_served;
    std::deque<Call*> m_calls MORVANE_GUARDED_BY(m_mutex);
    bool m_hasEnded MORVANE_GUARDED_BY(m_mutex) = false;
};

} // namespace Vantor
