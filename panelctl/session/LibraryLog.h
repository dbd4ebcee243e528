#pragma once

#include "libMorvaneHostUsb/ThreadAnnotations.h"
#include "panelctl/terminal/Output.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>

namespace Vantor {

// The library's log, for as long as it lives. Up to summaries a thread of its own tells the
// lines, so that the library waits for nobody, and one that comes again and again, as from
// a stalled endpoint, only once and then once a second with the number of times. Of what is
// more detailed every line is told where it comes.
//
// Build it before the library is used, destroy it after that.
class LibraryLog {
public:
    // Lines like the `expected` ones are left out, but of what is more detailed.
    LibraryLog(Output& output, int level, std::set<std::string> expected);
    ~LibraryLog(); // what has come until then is told
    LibraryLog(const LibraryLog&) = delete;
    LibraryLog& operator=(const LibraryLog&) = delete;

private:
    using Clock = std::chrono::steady_clock;

    struct Repeats {
        int level;
        std::uint64_t number;
    };

    // The library's threads, with its locks.
    void take(int level, std::string_view text);

    void run();
    void queueRepeats() MORVANE_REQUIRES(m_mutex);
    void tellQueue(std::unique_lock<std::mutex>& lock) MORVANE_REQUIRES(m_mutex);

    Output& m_output;
    const bool m_isDetailed;
    const std::set<std::string> m_expected;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<LogLine> m_queue MORVANE_GUARDED_BY(m_mutex);
    std::map<std::string, Repeats> m_repeats MORVANE_GUARDED_BY(m_mutex); // by line, since it was last told
    bool m_isEnding MORVANE_GUARDED_BY(m_mutex) = false;

    std::thread m_thread;
};

} // namespace Vantor
