#include "panelctl/Interrupt.h"

#include "panelctl/Failure.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace Vantor {

namespace {

std::atomic<int> s_signal{0};
std::atomic<int> s_writeEnd{-1};
static_assert(std::atomic<int>::is_always_lock_free, "used in a signal handler");

extern "C" void noteSignal(int signal)
{
    const int savedError = errno;
    int none = 0;
    s_signal.compare_exchange_strong(none, signal);
    const char wake = 0;
    [[maybe_unused]] const ssize_t written = write(s_writeEnd, &wake, sizeof wake);
    errno = savedError;
}

// Also where the signal was ignored at start, as in a script's background job: a
// signal sent on purpose must end the tool.
void install(int signal, void (*handler)(int))
{
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, nullptr);
}

} // namespace

Interrupt::Interrupt() : m_readEnd(-1)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        throw Failure(ExitCode::Failed, "no pipe for signals: " + std::generic_category().message(errno) + ".");
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
    if (const int signal = s_signal)
        throw Interrupted(signal);
}

} // namespace Vantor
