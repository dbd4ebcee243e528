#include "tests/support/Contender.h"

#include <fstream>
#include <string>
#include <utility>

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace Vantor::Test {

namespace {

constexpr int looksASecond = 100;
constexpr int undisturbedLooks = 20;
constexpr int limit = 10 * looksASecond;

void pauseBetweenLooks()
{
    const timespec pause{0, 1'000'000'000 / looksASecond};
    nanosleep(&pause, nullptr);
}

// How often the thread has gone to sleep by itself, or nothing while it runs.
std::string sleepOf(int task)
{
    std::ifstream status("/proc/self/task/" + std::to_string(task) + "/status");
    std::string line;
    bool sleeps = false;
    while (std::getline(status, line)) {
        if (line.rfind("State:\tS", 0) == 0)
            sleeps = true;
        if (sleeps && line.rfind("voluntary_ctxt_switches:", 0) == 0)
            return line;
    }
    return {};
}

} // namespace

Contender::Contender(std::function<void()> operation)
    : m_thread([this, operation = std::move(operation)] {
          m_task = static_cast<int>(syscall(SYS_gettid));
          operation();
          m_done = true;
      })
{}

Contender::~Contender()
{
    join();
}

bool Contender::isHeldUp()
{
    std::string last;
    int undisturbed = 0;
    for (int look = 0; look < limit && !m_done; ++look) {
        const std::string sleep = m_task != 0 ? sleepOf(m_task) : std::string();
        undisturbed = !sleep.empty() && sleep == last ? undisturbed + 1 : 0;
        if (undisturbed == undisturbedLooks)
            return !m_done;
        last = sleep;
        pauseBetweenLooks();
    }
    return false;
}

bool Contender::getsThrough()
{
    for (int look = 0; look < limit && !m_done; ++look)
        pauseBetweenLooks();
    return m_done;
}

void Contender::join()
{
    if (m_thread.joinable())
        m_thread.join();
}

} // namespace Vantor::Test
