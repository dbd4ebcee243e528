#include "panelctl/terminal/Interrupt.h"

#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Wording.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace Vantor {

namespace {

std::atomic<int> s_signal{0};
std::atomic<int> s_writeEnd{-1};
std::atomic<int> s_presses{0};             // signals, those of one Ctrl-C counted once
std::atomic<std::uint32_t> s_lastPress{0}; // milliseconds; wraps
std::atomic<int> s_tolerated{0};           // so many presses do not interrupt
struct sigaction s_hangUp;                 // what a hang-up does without a Reprieve
constexpr std::uint32_t samePress = 500;   // milliseconds
static_assert(std::atomic<int>::is_always_lock_free, "used in a signal handler");
static_assert(std::atomic<std::uint32_t>::is_always_lock_free, "used in a signal handler");

void countPress()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const auto time = static_cast<std::uint32_t>(std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000);
    if (s_presses != 0 && time - s_lastPress < samePress)
        return;
    s_lastPress = time;
    ++s_presses;
}

extern "C" void noteSignal(int signal)
{
    const int savedError = errno;
    int none = 0;
    s_signal.compare_exchange_strong(none, signal);
    countPress();
    const char wake = 0;
    [[maybe_unused]] const ssize_t written = write(s_writeEnd, &wake, sizeof wake);
    errno = savedError;
}

// Also where the signal was ignored at start, as in a script's background job: a
// signal sent on purpose must end the tool.
void install(int signal, void (*handler)(int), struct sigaction* previous = nullptr)
{
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, previous);
}

} // namespace

Interrupt::Interrupt() : m_readEnd(-1)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        throw Failure(ExitCode::Failed, "no pipe for signals: " + describeError(errno) + ".");
    m_readEnd = ends[0];
    s_writeEnd = ends[1];
    install(SIGINT, noteSignal);
    install(SIGTERM, noteSignal);
    install(SIGPIPE, SIG_IGN);
}

int Interrupt::getSignal()
{
    return s_signal;
}

void Interrupt::check()
{
    if (s_presses > s_tolerated)
        throw Interrupted(s_signal);
}

void Interrupt::await(int descriptor, short events)
{
    constexpr int step = 100; // milliseconds; for a signal just before poll
    pollfd source{descriptor, events, 0};
    while (poll(&source, 1, step) <= 0)
        check();
}

void Interrupt::drain() const
{
    std::array<char, 64> ignored{};
    while (read(m_readEnd, ignored.data(), ignored.size()) > 0)
        continue;
}

Interrupt::Reprieve::Reprieve()
{
    install(SIGHUP, SIG_IGN, &s_hangUp);
    s_tolerated = 1;
}

Interrupt::Reprieve::~Reprieve()
{
    if (s_presses <= s_tolerated) {
        s_signal = 0;
        s_presses = 0;
    }
    s_tolerated = 0;
    sigaction(SIGHUP, &s_hangUp, nullptr); // under nohup it stays ignored
}

bool Interrupt::Reprieve::isUsed()
{
    return s_presses != 0;
}

} // namespace Vantor
