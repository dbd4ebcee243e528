#include "panelctl/terminal/StatusLine.h"

#include "libMorvaneHostUsb/ThreadAnnotations.h"

#include <cstdlib>
#include <mutex>

#include <sys/ioctl.h>
#include <unistd.h>

namespace Vantor {

namespace {

constexpr std::size_t usualColumns = 80;
constexpr const char* clearLine = "\r\x1b[K"; // to the first column, then clear to the end

std::mutex s_mutex;
StatusLine* s_current MORVANE_GUARDED_BY(s_mutex) = nullptr;

void print(int descriptor, const std::string& text)
{
    [[maybe_unused]] const ssize_t written = write(descriptor, text.data(), text.size());
}

} // namespace

StatusLine::StatusLine(int terminal) : m_terminal(terminal)
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    s_current = this;
}

StatusLine::~StatusLine()
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    clear();
    s_current = nullptr;
}

void StatusLine::show(const std::string& text)
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    m_text = text;
    draw();
}

std::size_t StatusLine::getColumns() const
{
    winsize size{};
    return ioctl(m_terminal, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : usualColumns;
}

bool StatusLine::isPossibleOn(int descriptor)
{
    const char* const kind = std::getenv("TERM"); // NOLINT(concurrency-mt-unsafe): nothing changes it
    return isatty(descriptor) != 0 && kind != nullptr && std::string(kind) != "dumb";
}

void StatusLine::printAbove(const std::string& lines)
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    if (s_current != nullptr)
        s_current->clear();
    print(STDERR_FILENO, lines);
    if (s_current != nullptr)
        s_current->draw();
}

// One write a line, or the terminal shows it half drawn.
void StatusLine::draw() const
{
    if (!m_text.empty())
        print(m_terminal, clearLine + m_text);
}

void StatusLine::clear() const
{
    if (!m_text.empty())
        print(m_terminal, clearLine);
}

} // namespace Vantor
