#include "panelctl/terminal/Output.h"

#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Interrupt.h"
#include "panelctl/terminal/Report.h"
#include "panelctl/terminal/StatusLine.h"
#include "panelctl/terminal/Wording.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <optional>

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

// The first line of a message stands alone; the others say why and what to do.
void addMessage(JsonObject& object, const char* kind, const std::string& text)
{
    const std::size_t end = text.find('\n');
    object.add("kind", kind)
        .add("text", text.substr(0, end))
        .add("hint", end == std::string::npos ? "" : text.substr(end + 1));
}

} // namespace

Output::Output(Form form) : m_form(form), m_descriptor(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1))
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

void Output::report(const Report& report)
{
    if (isText())
        write(report.asText());
    else
        write(report.asJson());
}

void Output::warn(const Warning& warning)
{
    if (isText()) {
        printError(warning.text);
        return;
    }
    JsonObject object("warning");
    addMessage(object, warning.kind, warning.text);
    object.add("uid", warning.uid.empty() ? std::nullopt : std::optional(warning.uid));
    write(object);
}

void Output::complain(const Failure& failure) noexcept
try {
    if (*failure.what() == '\0')
        return;
    if (!isText() && m_trouble.empty()) {
        try {
            JsonObject object("error");
            addMessage(object, failure.getKind(), failure.what());
            object.add("exitCode", failure.getExitCode());
            write(object);
            return;
        } catch (const Failure&) {
            m_isTolerant = true; // nobody reads it there
        }
    }
    printError(failure.what());
} catch (const std::exception&) { // NOLINT(bugprone-empty-catch): no memory for a message
}

void Output::line(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const std::string text = formatPrintf(format, arguments);
    va_end(arguments);
    this->text(text + "\n");
}

void Output::text(const std::string& text)
{
    if (isText())
        write(text);
}

void Output::write(const JsonObject& object)
{
    write(object.format() + "\n");
}

int Output::getDescriptor() const
{
    return m_descriptor;
}

void Output::write(const std::string& text)
{
    if (m_descriptor < 0 && m_trouble.empty())
        fail(EBADF);
    for (std::size_t done = 0; done < text.size() && m_trouble.empty();) {
        // A reader that has stopped must not keep a signal from ending the command. With room
        // a pipe takes PIPE_BUF bytes without waiting.
        Interrupt::await(m_descriptor, POLLOUT);
        const ssize_t written =
            ::write(m_descriptor, text.data() + done, std::min<std::size_t>(text.size() - done, PIPE_BUF));
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
