#include "tests/support/LogCapture.h"

#include <cstdio>
#include <cstdlib>
#include <regex>

#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

namespace Vantor::Test {

namespace {

int s_file = -1;
int s_terminal = -1;

void redirect(int target)
{
    std::fflush(stdout);
    if (dup2(target, STDOUT_FILENO) < 0)
        std::abort();
}

} // namespace

LogCapture::LogCapture() : m_file(memfd_create("log", MFD_CLOEXEC)), m_terminal(dup(STDOUT_FILENO)), m_taken(0)
{
    if (m_file < 0 || m_terminal < 0 || s_file >= 0)
        std::abort();
    s_file = m_file;
    s_terminal = m_terminal;
    redirect(m_file);
}

LogCapture::~LogCapture()
{
    redirect(m_terminal);
    s_file = -1;
    s_terminal = -1;
    close(m_file);
    close(m_terminal);
}

std::string LogCapture::peek()
{
    std::fflush(stdout);
    std::string text;
    char chunk[4096];
    ssize_t count = 0;
    while ((count = pread(m_file, chunk, sizeof chunk, m_taken + static_cast<long>(text.size()))) > 0)
        text.append(chunk, static_cast<std::size_t>(count));
    return text;
}

std::string LogCapture::take()
{
    std::string text = peek();
    m_taken += static_cast<long>(text.size());
    return text;
}

void LogCapture::waitFor(const std::string& text, int times)
{
    for (;;) {
        const std::string written = peek();
        int found = 0;
        for (std::size_t at = written.find(text); at != std::string::npos; at = written.find(text, at + text.size()))
            ++found;
        if (found >= times)
            return;
        const timespec pause{0, 100'000};
        nanosleep(&pause, nullptr);
    }
}

std::string LogCapture::withoutPositions(const std::string& text)
{
    static const std::regex position("[^\\s:]*/([A-Za-z]+)\\.cpp:[0-9]+: ");
    return std::regex_replace(text, position, "@$1: ");
}

std::string LogCapture::replaced(std::string text, const std::string& from, const std::string& to)
{
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

LogCapture::Pause::Pause()
{
    if (s_terminal >= 0)
        redirect(s_terminal);
}

LogCapture::Pause::~Pause()
{
    if (s_file >= 0)
        redirect(s_file);
}

std::string printed(const void* pointer)
{
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

} // namespace Vantor::Test
