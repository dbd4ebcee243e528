#include "panelctl/terminal/Output.h"

#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/StatusLine.h"

#include <cerrno>
#include <cstdarg>
#include <system_error>

#include <fcntl.h>
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

Output::Output() : m_stream(nullptr)
{
    const int own = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (own >= 0)
        m_stream = fdopen(own, "w");
    if (m_stream != nullptr)
        std::setvbuf(m_stream, nullptr, _IOLBF, BUFSIZ);
    sendLibraryLogToStandardError();
}

Output::~Output()
{
    if (m_stream != nullptr)
        std::fclose(m_stream);
}

void Output::fail(int error)
{
    const std::string reason = std::generic_category().message(error);
    if (m_isTolerant) {
        m_trouble = reason;
        return;
    }
    // Whoever read the output has had enough: nothing to say.
    throw Failure(ExitCode::Failed, error == EPIPE ? "" : "standard output can't be written: " + reason + ".");
}

void Output::line(const char* format, ...)
{
    if (!m_trouble.empty())
        return;
    if (m_stream == nullptr)
        return fail(EBADF);
    va_list arguments;
    va_start(arguments, format);
    const int written = std::vfprintf(m_stream, format, arguments);
    va_end(arguments);
    if (written < 0 || std::fputc('\n', m_stream) == EOF || std::fflush(m_stream) != 0)
        fail(errno);
}

int Output::getDescriptor() const
{
    return m_stream == nullptr ? -1 : fileno(m_stream);
}

void Output::text(const std::string& text)
{
    if (!m_trouble.empty())
        return;
    if (m_stream == nullptr)
        return fail(EBADF);
    if (std::fputs(text.c_str(), m_stream) == EOF || std::fflush(m_stream) != 0)
        fail(errno);
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
