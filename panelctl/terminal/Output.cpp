#include "panelctl/terminal/Output.h"

#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Interrupt.h"
#include "panelctl/terminal/Reason.h"
#include "panelctl/terminal/Report.h"
#include "panelctl/terminal/StatusLine.h"
#include "panelctl/terminal/Wording.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <optional>

#include <poll.h>
#include <unistd.h>

namespace Vantor {

namespace {

// The first line of a message stands alone; the others say why and what to do.
void addMessage(JsonObject& object, const char* kind, const std::string& text)
{
    const std::size_t end = text.find('\n');
    object.add("kind", kind)
        .add("text", text.substr(0, end))
        .add("hint", end == std::string::npos ? "" : text.substr(end + 1));
}

} // namespace

void Output::tolerateFailures()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isTolerant = true;
}

std::string Output::getTrouble() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_trouble;
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
    if (!isText() && getTrouble().empty()) {
        try {
            JsonObject object("error");
            addMessage(object, failure.getKind(), failure.what());
            object.add("exitCode", failure.getExitCode());
            if (failure.getReason())
                addReason(object, failure.getReason());
            write(object);
            return;
        } catch (const Failure&) {
            tolerateFailures(); // nobody reads it there
        }
    }
    printError(failure.what());
} catch (const std::exception&) { // NOLINT(bugprone-empty-catch): no memory for a message
}

void Output::log(const LogLine& line) noexcept
try {
    if (isText()) {
        const std::string times = line.repeats == 0 ? "" : " (" + std::to_string(line.repeats) + " more)";
        StatusLine::printAbove(line.text + times + "\n");
        return;
    }
    JsonObject object("log");
    object.add("level", line.level).add("text", line.text).add("times", std::max<std::uint64_t>(line.repeats, 1));
    const std::string text = object.format() + "\n";
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_isLogLost)
        return;
    m_isLogLost = true; // unless this gets through
    writeAll(text);
    m_isLogLost = false;
} catch (const std::exception&) { // NOLINT(bugprone-empty-catch): the library's threads want no exception
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

int Output::getDescriptor()
{
    return STDOUT_FILENO;
}

void Output::write(const std::string& text)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    writeAll(text);
}

void Output::writeAll(const std::string& text)
{
    for (std::size_t done = 0; done < text.size() && m_trouble.empty();) {
        // A reader that has stopped must not keep a signal from ending the command. With room
        // a pipe takes PIPE_BUF bytes without waiting.
        Interrupt::await(STDOUT_FILENO, POLLOUT);
        const ssize_t written =
            ::write(STDOUT_FILENO, text.data() + done, std::min<std::size_t>(text.size() - done, PIPE_BUF));
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
