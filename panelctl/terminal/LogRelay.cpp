#include "panelctl/terminal/LogRelay.h"

#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/StatusLine.h"
#include "panelctl/terminal/Wording.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace Vantor {

namespace {

constexpr std::chrono::seconds period{1};

} // namespace

LogRelay::LogRelay(std::set<std::string> expected)
    : m_readEnd(-1), m_savedOutput(-1), m_expected(std::move(expected)), m_periodEnd(Clock::now() + period)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw Failure(ExitCode::Failed, "no pipe for the log: " + describeError(errno) + ".");
    m_readEnd = ends[0];
    m_savedOutput = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    m_thread = std::thread(&LogRelay::run, this);
}

// With descriptor 1 given back, the pipe has no writer any more and the thread
// comes to its end.
LogRelay::~LogRelay()
{
    std::fflush(stdout);
    if (m_savedOutput < 0 || dup2(m_savedOutput, STDOUT_FILENO) < 0)
        close(STDOUT_FILENO);
    m_thread.join();
    close(m_readEnd);
    close(m_savedOutput);
}

void LogRelay::run()
{
    std::array<char, 4096> buffer{};
    for (;;) {
        const auto now = Clock::now();
        if (now >= m_periodEnd)
            endPeriod();
        // Never below 0, which would be for ever. Nothing to sum up means nothing to wake up for.
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_periodEnd - now);
        pollfd source{m_readEnd, POLLIN, 0};
        if (poll(&source, 1, m_repeats.empty() ? -1 : static_cast<int>(left.count())) <= 0)
            continue;
        const ssize_t length = read(m_readEnd, buffer.data(), buffer.size());
        if (length == 0)
            break;
        if (length > 0)
            takeIn(std::string(buffer.data(), static_cast<std::size_t>(length)));
    }
    if (!m_rest.empty())
        pass(m_rest);
    endPeriod();
}

void LogRelay::takeIn(const std::string& text)
{
    m_rest += text;
    for (std::size_t end = m_rest.find('\n'); end != std::string::npos; end = m_rest.find('\n')) {
        pass(m_rest.substr(0, end));
        m_rest.erase(0, end + 1);
    }
}

void LogRelay::pass(const std::string& line)
{
    if (m_expected.count(line) != 0)
        return;
    const auto [entry, isNew] = m_repeats.try_emplace(line, 0);
    if (isNew)
        StatusLine::printAbove(line + "\n");
    else
        ++entry->second;
}

// A line that was repeated stays known, so that a flood costs one line a second.
void LogRelay::endPeriod()
{
    m_periodEnd = Clock::now() + period;
    for (auto entry = m_repeats.begin(); entry != m_repeats.end();) {
        if (entry->second == 0) {
            entry = m_repeats.erase(entry);
            continue;
        }
        StatusLine::printAbove(entry->first + " (" + std::to_string(entry->second) + " more)\n");
        entry->second = 0;
        ++entry;
    }
}

} // namespace Vantor
