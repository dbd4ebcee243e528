#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Vantor {

// Reads lines from a descriptor, on a thread of its own, until its end.
//
// Threads: every operation from any thread.
class LineReader {
public:
    // `isOfInterest`: which lines are kept, all without it.
    using Filter = std::function<bool(const std::string&)>;
    explicit LineReader(int descriptor, Filter isOfInterest = {}); // closes it at the end
    ~LineReader();                                                 // waits for the end
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    // Waits for a line that matches and takes it out; false when none comes in time.
    bool take(const Filter& matches, std::chrono::milliseconds limit);
    bool take(const std::string& line, std::chrono::milliseconds limit);

    // Waits for the end, then returns what was not taken out.
    std::vector<std::string> takeRest();

    // What is there now and was not taken out.
    std::vector<std::string> getLines() const;

private:
    void read(int descriptor);

    const Filter m_isOfInterest;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_lines;
    bool m_ended = false;
    std::thread m_thread;
};

} // namespace Vantor
