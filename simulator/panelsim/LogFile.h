#pragma once

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

namespace Vantor {

// What --log writes: one line for each thing that happens, with the seconds since the
// beginning.
//
// Threads: one at a time.
class LogFile {
public:
    using Complain = std::function<void(const std::string&)>;

    // "-" is standard error. Throws std::runtime_error for a file that can't be written.
    // `complain` hears of the first line that can't be.
    LogFile(const std::string& path, Complain complain);

    void write(const std::string& line);

    // Whether lines are missing; from any thread.
    bool hasFailed() const { return m_hasFailed; }

private:
    const std::string m_path;
    const Complain m_complain;
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    const std::shared_ptr<std::FILE> m_file;
    std::atomic<bool> m_hasFailed{false};
};

} // namespace Vantor
