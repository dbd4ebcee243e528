// The library's messages through a queue with a thread of its own: a console that is slow, or
// that nobody reads, keeps no panel waiting. What does not fit is dropped, and counted.

#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/UsbManager.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include <poll.h>
#include <unistd.h>

using namespace Vantor;

namespace {

// Threads: add from any; the rest from one. Lifetime: until the sink has been removed.
class LogQueue {
public:
    explicit LogQueue(int descriptor) : m_descriptor(descriptor), m_thread([this] { run(); }) {}

    // What is still there gets a second more.
    ~LogQueue()
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_end = Clock::now() + std::chrono::seconds(1);
        }
        m_changed.notify_one();
        m_thread.join();
    }

    LogQueue(const LogQueue&) = delete;
    LogQueue& operator=(const LogQueue&) = delete;

    // Waits for nothing but the taking of a line out of the queue.
    void add(std::string_view text)
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (m_lines.size() >= most) {
                ++m_dropped;
                return;
            }
            m_lines.emplace_back(text).push_back('\n');
        }
        m_changed.notify_one();
    }

    // Since the last call.
    std::uint64_t takeDropped()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return std::exchange(m_dropped, 0);
    }

private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::size_t most = 1000;

    void run()
    {
        for (std::string line; take(line);) {
            if (!writeAll(line))
                return;
            if (const std::uint64_t dropped = isBehind() ? 0 : takeDropped())
                writeAll(std::to_string(dropped) + " lines were dropped\n");
        }
    }

    bool take(std::string& line)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return !m_lines.empty() || m_end != never; });
        if (m_lines.empty())
            return false;
        line = std::move(m_lines.front());
        m_lines.pop_front();
        return true;
    }

    bool isBehind()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return !m_lines.empty();
    }

    bool isOver()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return Clock::now() >= m_end;
    }

    // Only what the descriptor takes at once, so that this thread can always be ended.
    bool writeAll(const std::string& line)
    {
        constexpr std::size_t piece = 512;
        for (std::size_t at = 0; at < line.size();) {
            if (isOver())
                return false;
            pollfd writable{m_descriptor, POLLOUT, 0};
            if (poll(&writable, 1, 100) <= 0)
                continue;
            const ssize_t written = write(m_descriptor, line.data() + at, std::min(line.size() - at, piece));
            if (written >= 0)
                at += static_cast<std::size_t>(written);
            else if (errno != EINTR && errno != EAGAIN)
                return false;
        }
        return true;
    }

    static constexpr Clock::time_point never = Clock::time_point::max();

    const int m_descriptor;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::string> m_lines;
    std::uint64_t m_dropped = 0;
    Clock::time_point m_end = never;
    std::thread m_thread; // the last member: it uses the others
};

constexpr unsigned int records = 2000;

// Gives a panel something to take, and waits until it has; false when there is none.
bool sendRecords(UsbManager& manager)
{
    const auto panels = manager.getDeviceListSafe();
    if (panels.empty())
        return false;
    UsbDevice& panel = *panels.front();
    const std::array<unsigned char, 1000> record{}; // one a packet
    for (unsigned int number = 0; number < records; ++number)
        panel.getPacker().addStructData(record.data(), record.size(), static_cast<PacketType>(6));
    while (panel.isAlive() && panel.getStatistics().sent.records < records)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return panel.isAlive();
}

} // namespace

int main()
{
    std::signal(SIGPIPE, SIG_IGN); // a reader that goes ends the log, not the program
    LogQueue queue(STDOUT_FILENO);
    setLogSink([&queue](LogLevel::Level /*level*/, std::string_view text) { queue.add(text); });
    setLogLevel(LogLevel::Trace);

    UsbManager* const manager = UsbManager::getUsbManager();
    manager->initialise();
    const bool sent = sendRecords(*manager);
    UsbManager::destroyUsbManager();
    setLogSink(nullptr); // from here on the queue may go
    if (!sent) {
        std::fputs("no panel has taken the records\n", stderr);
        return 1;
    }
    std::fprintf(stderr, "%u records sent, %s\n", records,
                 queue.takeDropped() == 0 ? "every line kept" : "lines dropped");
    return 0;
}
