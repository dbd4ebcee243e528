#pragma once

#include <chrono>
#include <functional>

#include <pthread.h>

namespace Vantor::Test {

// Time as the code under test sees it: system_clock, steady_clock and usleep, under
// the test's control while an object exists. The executable's own clock_gettime and
// usleep stand before the C library's.
//
// Both clocks begin far in the past of the real ones: a timed wait on a condition then
// ends at once and its caller polls, where a clock ahead of the real one would sleep.
// A thread that polls an unmoving clock gives the processor away.
//
// Threads: every operation from any thread, except the constructor and destructor.
class VirtualClock {
public:
    VirtualClock();
    ~VirtualClock();
    VirtualClock(const VirtualClock&) = delete;
    VirtualClock& operator=(const VirtualClock&) = delete;

    static std::chrono::system_clock::time_point now();
    static void advance(std::chrono::nanoseconds amount);

    // Moves the system clock alone, as someone who sets the time.
    static void step(std::chrono::nanoseconds amount);

    // Every read of the clock moves time on by that much, after it was read; of the system
    // clock by one thread alone, since the receive thread polls it.
    static void tickPerSystemRead(std::chrono::nanoseconds amount, pthread_t thread);
    static void tickPerSteadyRead(std::chrono::nanoseconds amount);

    // Called inside every read of the system clock by the calling thread, before it.
    static void onSystemRead(std::function<void()> hook);

    // Blocks until some thread polls, as the receive thread does once it waits for a message.
    static void waitForPolling();

    // Calls of usleep so far, each of which advances time by what it asked for.
    static unsigned int sleeps();

    // Called inside usleep, on its thread.
    static void onSleep(std::function<void()> hook);
};

} // namespace Vantor::Test
