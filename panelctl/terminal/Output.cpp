#include "panelctl/terminal/Output.h"

#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Interrupt.h"
#include "panelctl/terminal/StatusLine.h"
#include "panelctl/terminal/Wording.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace Vantor {

namespace {

void sendLibraryLogToStandardError()
{
    if (dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (null >= 0) {
            dup2(null, STDOUT_FILENO);
            close(null);
        }
    }
    // Its lines and ours then keep their order, also in a file.
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
}

} // namespace

Output::Output() : m_descriptor(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1))
{
    sendLibraryLogToStandardError();
}

Output::~Output()
{
    if (m_descriptor >= 0)
        close(m_descriptor);
}

void Output::fail(int error)
{
    const std::string reason = describeError(error);
    if (m_isTolerant) {
        m_trouble = reason;
        return;
    }
    // Whoever read the output has had enough: nothing to say.
    throw Failure(ExitCode::Failed, error == EPIPE ? "" : "standard output can't be written: " + reason + ".");
}

void Output::line(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    std::string whole(static_cast<std::size_t>(std::max(length, 0)) + 1, '\n');
    std::vsnprintf(whole.data(), whole.size(), format, again);
    va_end(again);
    va_end(arguments);
    whole.back() = '\n'; // over the terminator
    text(whole);
}

int Output::getDescriptor() const
{
    return m_descriptor;
}

void Output::text(const std::string& text)
{
    if (m_descriptor < 0 && m_trouble.empty())
        fail(EBADF);
    for (std::size_t done = 0; done < text.size() && m_trouble.empty();) {
        // A reader that has stopped must not keep a signal from ending the command. With room
        // a pipe takes PIPE_BUF bytes without waiting.
        Interrupt::await(m_descriptor, POLLOUT);
        const ssize_t written =
            write(m_descriptor, text.data() + done, std::min<std::size_t>(text.size() - done, PIPE_BUF));
        if (written >= 0)
            done += static_cast<std::size_t>(written);
        else if (errno != EINTR)
            fail(errno);
    }
}

void printError(const std::string& text)
{
    std::string message = std::string(program_invocation_short_name) + ": ";
    for (const char character : text) {
        message += character;
        if (character == '\n')
            message += "  ";
    }
    message += '\n';
    StatusLine::printAbove(message);
}

} // namespace Vantor
