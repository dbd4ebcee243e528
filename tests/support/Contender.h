#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace Vantor::Test {

// A second thread that runs one operation, to see whether a lock keeps it out.
//
// Both questions are answered in real time: the clocks that the standard library waits
// with are virtual here, and a wait with them would end at once. No answer depends on how
// fast the machine is as long as the code is right; only a missing lock may then and when
// stay unseen.
class Contender {
public:
    explicit Contender(std::function<void()> operation);
    ~Contender(); // waits for the operation to return
    Contender(const Contender&) = delete;
    Contender& operator=(const Contender&) = delete;

    // True once it has slept undisturbed for a while, false once the operation has returned.
    bool isHeldUp();

    // True once the operation has returned, false when it does not in ten seconds.
    bool getsThrough();

    void join();

private:
    std::atomic<int> m_task{0}; // the kernel's number of the thread
    std::atomic<bool> m_done{false};
    std::thread m_thread;
};

} // namespace Vantor::Test
