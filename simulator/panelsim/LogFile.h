#pragma once

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

namespace Vantor {

// What --log writes: one line for each thing that happens, with the seconds since `begin`,
// or 0 before.
//
// Threads: one at a time; `begin` beside the others.
class LogFile {
public:
    using Complain = std::function<void(const std::string&)>;

    // "-" is standard error. Throws std::runtime_error for a file that can't be written.
    // `complain` hears of the first line that can't be.
    LogFile(const std::string& path, Complain complain);

    // Time is counted from now on.
    void begin() { m_start = Clock::now(); }

    void write(const std::string& line);

    // Whether lines are missing; from any thread.
    bool hasFailed() const { return m_hasFailed; }

private:
    using Clock = std::chrono::steady_clock;

    const std::string m_path;
    const Complain m_complain;
    std::atomic<Clock::time_point> m_start{Clock::time_point::max()};
    const std::shared_ptr<std::FILE> m_file;
    std::atomic<bool> m_hasFailed{false};
};

} // namespace Vantor
