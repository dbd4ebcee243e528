#include "tests/support/VirtualClock.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <utility>

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace Vantor::Test {

namespace {

constexpr std::int64_t nsPerSecond = 1'000'000'000;
constexpr std::int64_t systemBase = 1'000'000'000 * nsPerSecond; // the year 2001
constexpr std::int64_t steadyBase = -1'000'000'000 * nsPerSecond;

// Reads of an unmoving clock by one thread before it counts as polling.
constexpr int patience = 32;
constexpr long pollPauseNs = 50'000;

std::atomic<bool> s_installed{false};
std::atomic<std::int64_t> s_elapsed{0};
std::atomic<std::int64_t> s_step{0};
std::atomic<std::int64_t> s_systemTick{0};
std::atomic<pthread_t> s_systemTicker{};
std::atomic<unsigned long> s_pauses{0};
std::atomic<std::int64_t> s_steadyTick{0};
std::atomic<unsigned int> s_sleeps{0};
std::mutex s_hookMutex;
std::function<void()> s_sleepHook;

thread_local std::function<void()> t_readHook;
thread_local std::int64_t t_lastSeen = -1;
thread_local int t_repeats = 0;

void pauseIfPolling(std::int64_t elapsed)
{
    if (elapsed != t_lastSeen) {
        t_lastSeen = elapsed;
        t_repeats = 0;
        return;
    }
    if (++t_repeats < patience)
        return;
    ++s_pauses;
    const timespec pause{0, pollPauseNs};
    nanosleep(&pause, nullptr);
}

std::int64_t systemTick()
{
    const std::int64_t tick = s_systemTick;
    return tick != 0 && pthread_equal(s_systemTicker, pthread_self()) != 0 ? tick : 0;
}

timespec toTimespec(std::int64_t ns)
{
    std::int64_t seconds = ns / nsPerSecond;
    std::int64_t rest = ns % nsPerSecond;
    if (rest < 0) {
        --seconds;
        rest += nsPerSecond;
    }
    timespec result{};
    result.tv_sec = static_cast<time_t>(seconds);
    result.tv_nsec = static_cast<long>(rest);
    return result;
}

timespec read(std::int64_t base, std::int64_t tick)
{
    const std::int64_t elapsed = s_elapsed.fetch_add(tick);
    pauseIfPolling(elapsed);
    return toTimespec(base + elapsed);
}

} // namespace

VirtualClock::VirtualClock()
{
    s_elapsed = 0;
    s_step = 0;
    s_systemTick = 0;
    s_steadyTick = 0;
    s_sleeps = 0;
    s_installed = true;
}

VirtualClock::~VirtualClock()
{
    s_installed = false;
    onSleep(nullptr);
}

std::chrono::system_clock::time_point VirtualClock::now()
{
    return std::chrono::system_clock::time_point(std::chrono::nanoseconds(systemBase + s_step + s_elapsed));
}

void VirtualClock::advance(std::chrono::nanoseconds amount)
{
    s_elapsed += amount.count();
}

void VirtualClock::step(std::chrono::nanoseconds amount)
{
    s_step += amount.count();
}

void VirtualClock::tickPerSystemRead(std::chrono::nanoseconds amount, pthread_t thread)
{
    s_systemTicker = thread;
    s_systemTick = amount.count();
}

void VirtualClock::tickPerSteadyRead(std::chrono::nanoseconds amount)
{
    s_steadyTick = amount.count();
}

void VirtualClock::onSystemRead(std::function<void()> hook)
{
    t_readHook = std::move(hook);
}

void VirtualClock::waitForPolling()
{
    const unsigned long before = s_pauses;
    while (s_pauses == before) {
        const timespec pause{0, pollPauseNs};
        nanosleep(&pause, nullptr);
    }
}

unsigned int VirtualClock::sleeps()
{
    return s_sleeps;
}

void VirtualClock::onSleep(std::function<void()> hook)
{
    const std::lock_guard<std::mutex> lock(s_hookMutex);
    s_sleepHook = std::move(hook);
}

} // namespace Vantor::Test

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    using namespace Vantor::Test;
    if (s_installed && clock == CLOCK_REALTIME) {
        if (t_readHook)
            t_readHook();
        *time = read(systemBase + s_step, systemTick());
        return 0;
    }
    if (s_installed && clock == CLOCK_MONOTONIC) {
        *time = read(steadyBase, s_steadyTick);
        return 0;
    }
    return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
}

extern "C" int usleep(useconds_t microseconds)
{
    using namespace Vantor::Test;
    if (!s_installed) {
        const timespec pause{static_cast<time_t>(microseconds / 1'000'000),
                             static_cast<long>(microseconds % 1'000'000) * 1000};
        return nanosleep(&pause, nullptr);
    }
    ++s_sleeps;
    VirtualClock::advance(std::chrono::microseconds(microseconds));
    std::function<void()> hook;
    {
        const std::lock_guard<std::mutex> lock(s_hookMutex);
        hook = s_sleepHook;
    }
    if (hook)
        hook();
    return 0;
}
