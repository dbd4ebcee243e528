#include "panelctl/session/LibraryLog.h"

#include "libMorvaneHostUsb/Log.h"

#include <exception>
#include <utility>

namespace Vantor {

namespace {

constexpr std::chrono::seconds period{1};

} // namespace

LibraryLog::LibraryLog(Output& output, int level, std::set<std::string> expected)
    : m_output(output), m_isDetailed(level >= LogLevel::Detail), m_expected(std::move(expected))
{
    setLogLevel(static_cast<LogLevel::Level>(level));
    m_thread = std::thread(&LibraryLog::run, this);
    setLogSink([this](LogLevel::Level lineLevel, std::string_view text) { take(lineLevel, text); });
}

LibraryLog::~LibraryLog()
{
    setLogSink(nullptr);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isEnding = true;
    }
    m_changed.notify_one();
    m_thread.join();
}

void LibraryLog::take(int level, std::string_view text)
try {
    const std::string line(text);
    if (m_isDetailed) {
        m_output.log({level, line});
        return;
    }
    if (m_expected.count(line) != 0)
        return;
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto [entry, isNew] = m_repeats.try_emplace(line, Repeats{level, 0});
    if (isNew) {
        m_queue.push_back({level, line});
        m_changed.notify_one();
    } else {
        ++entry->second.number;
    }
} catch (const std::exception&) { // NOLINT(bugprone-empty-catch): no memory for a line, and nothing may be thrown
}

// Not analysed: a condition needs std::unique_lock, which carries no annotation.
void LibraryLog::run() MORVANE_NO_THREAD_SAFETY_ANALYSIS
{
    std::unique_lock<std::mutex> lock(m_mutex);
    auto periodEnd = Clock::now() + period;
    const auto isWanted = [this]() MORVANE_REQUIRES(m_mutex) { return m_isEnding || !m_queue.empty(); };
    while (!m_isEnding) {
        // Nothing to sum up means nothing to wake up for.
        if (m_repeats.empty())
            m_changed.wait(lock, isWanted);
        else
            m_changed.wait_until(lock, periodEnd, isWanted);
        if (Clock::now() >= periodEnd) {
            queueRepeats();
            periodEnd = Clock::now() + period;
        }
        tellQueue(lock);
    }
    queueRepeats();
    tellQueue(lock);
}

// A line that was repeated stays known, so that a flood costs one line a second.
void LibraryLog::queueRepeats()
{
    for (auto entry = m_repeats.begin(); entry != m_repeats.end();) {
        Repeats& repeats = entry->second;
        if (repeats.number == 0) {
            entry = m_repeats.erase(entry);
            continue;
        }
        m_queue.push_back({repeats.level, entry->first, repeats.number});
        repeats.number = 0;
        ++entry;
    }
}

// Without the lock: the library must not wait for a reader.
void LibraryLog::tellQueue(std::unique_lock<std::mutex>& lock)
{
    const std::deque<LogLine> lines = std::exchange(m_queue, {});
    lock.unlock();
    for (const LogLine& line : lines)
        m_output.log(line);
    lock.lock();
}

} // namespace Vantor
