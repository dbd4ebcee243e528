#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <thread>

namespace Vantor {

// Passes the library's log on to standard error, but a line that comes again and
// again, as from a stalled endpoint, only once and then once a second with the
// number of times. Takes descriptor 1 for as long as it lives.
//
// Threads: its own does the passing on; build and destroy it on the main thread
// while the library is silent.
class LogRelay {
public:
    // Lines like the `expected` ones are left out.
    explicit LogRelay(std::set<std::string> expected);
    ~LogRelay(); // what has been printed until then has been passed on afterwards
    LogRelay(const LogRelay&) = delete;
    LogRelay& operator=(const LogRelay&) = delete;

private:
    using Clock = std::chrono::steady_clock;

    void run();
    void takeIn(const std::string& text);
    void pass(const std::string& line);
    void endPeriod();

    int m_readEnd;
    int m_savedOutput; // what descriptor 1 was before

    const std::set<std::string> m_expected;

    // The thread's own.
    std::string m_rest; // of a line that has not ended yet
    std::map<std::string, std::uint64_t> m_repeats;
    Clock::time_point m_periodEnd;

    std::thread m_thread;
};

} // namespace Vantor
