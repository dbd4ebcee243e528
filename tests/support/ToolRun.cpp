#include "tests/support/ToolRun.h"

#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#ifndef MORVANE_PANELSIM
#define MORVANE_PANELSIM ""
#endif

namespace Vantor {

namespace {

constexpr std::chrono::seconds patience{40};

std::array<int, 2> makePipe()
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    return ends;
}

[[noreturn]] void become(const ToolRun::Arguments& command)
{
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(127);
}

// False at the end.
bool append(std::string& text, int descriptor)
{
    std::array<char, 4096> buffer{};
    const ssize_t length = read(descriptor, buffer.data(), buffer.size());
    if (length > 0)
        text.append(buffer.data(), static_cast<std::size_t>(length));
    return length > 0;
}

void closeIfOpen(int& descriptor)
{
    if (descriptor >= 0)
        close(descriptor);
    descriptor = -1;
}

} // namespace

ToolRun::ToolRun(const Arguments& command) : m_mark(Clock::now())
{
    const auto output = makePipe();
    const auto errors = makePipe();
    m_process = fork();
    if (m_process == 0) {
        dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
        dup2(output[1], STDOUT_FILENO);
        dup2(errors[1], STDERR_FILENO);
        become(command);
    }
    close(output[1]);
    close(errors[1]);
    m_outputEnd = output[0];
    m_errorEnd = errors[0];
}

ToolRun::ToolRun(const Arguments& command, Terminal terminal) : m_mark(Clock::now())
{
    const winsize size{24, terminal.columns, 0, 0};
    m_process = forkpty(&m_outputEnd, nullptr, nullptr, &size);
    if (m_process == 0) {
        setenv("TERM", "xterm", 1);
        become(command);
    }
    fcntl(m_outputEnd, F_SETFD, FD_CLOEXEC);
}

ToolRun::~ToolRun()
{
    if (m_process > 0) {
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
    }
    closeIfOpen(m_outputEnd);
    closeIfOpen(m_errorEnd);
}

bool ToolRun::readSome(Clock::time_point deadline)
{
    std::array<pollfd, 2> sources{{{m_outputEnd, POLLIN, 0}, {m_errorEnd, POLLIN, 0}}};
    if (m_outputEnd < 0 && m_errorEnd < 0)
        return false;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0 || poll(sources.data(), sources.size(), static_cast<int>(left)) <= 0) {
        ADD_FAILURE() << "still running; standard output:\n" << m_output << "standard error:\n" << m_errors;
        return false;
    }
    if (sources[0].revents != 0 && !append(m_output, m_outputEnd))
        closeIfOpen(m_outputEnd);
    if (sources[1].revents != 0 && !append(m_errors, m_errorEnd))
        closeIfOpen(m_errorEnd);
    return true;
}

void ToolRun::awaitOutput(const std::string& text)
{
    await(m_output, text);
}

void ToolRun::awaitErrors(const std::string& text)
{
    await(m_errors, text);
}

void ToolRun::await(const std::string& output, const std::string& text)
{
    const auto deadline = Clock::now() + patience;
    while (output.find(text) == std::string::npos)
        if (!readSome(deadline)) {
            ADD_FAILURE() << "no '" << text << "' in:\n" << m_output << m_errors;
            return;
        }
}

void ToolRun::awaitFile(const std::string& path, const std::string& text)
{
    const auto deadline = Clock::now() + patience;
    while (contentOf(path).find(text) == std::string::npos) {
        ASSERT_LT(Clock::now(), deadline) << "no '" << text << "' in:\n" << contentOf(path);
        let(std::chrono::milliseconds(10));
    }
}

void ToolRun::let(std::chrono::milliseconds time)
{
    std::this_thread::sleep_for(time);
}

void ToolRun::sendSignal(int signal)
{
    m_mark = Clock::now();
    kill(m_process, signal);
}

void ToolRun::sendSignalToTool(int signal)
{
    const std::string process = std::to_string(m_process);
    pid_t tool = 0;
    std::ifstream("/proc/" + process + "/task/" + process + "/children") >> tool;
    ASSERT_GT(tool, 0) << "no program under panelsim";
    m_mark = Clock::now();
    kill(tool, signal);
}

void ToolRun::type(const std::string& text)
{
    ASSERT_EQ(write(m_outputEnd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

void ToolRun::closeOutput()
{
    closeIfOpen(m_outputEnd);
}

int ToolRun::finish()
{
    const auto deadline = Clock::now() + patience;
    while (readSome(deadline))
        continue;
    if (Clock::now() >= deadline)
        kill(m_process, SIGKILL);
    int status = 0;
    waitpid(m_process, &status, 0);
    m_process = -1;
    m_seconds = std::chrono::duration<double>(Clock::now() - m_mark).count();
    EXPECT_EQ(m_errors.find("Sanitizer"), std::string::npos) << m_errors;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string screenOf(const std::string& output, std::size_t columns)
{
    static const std::string clearToEnd = "\x1b[K";
    std::vector<std::string> lines{""};
    std::size_t column = 0;
    for (std::size_t i = 0; i < output.size(); ++i) {
        if (output.compare(i, clearToEnd.size(), clearToEnd) == 0) {
            lines.back().resize(std::min(lines.back().size(), column));
            i += clearToEnd.size() - 1;
        } else if (output[i] == '\r') {
            column = 0;
        } else if (output[i] == '\n') {
            lines.emplace_back();
        } else {
            if (column == columns) {
                lines.emplace_back();
                column = 0;
            }
            lines.back().resize(std::max(lines.back().size(), column + 1), ' ');
            lines.back()[column++] = output[i];
        }
    }
    std::string screen;
    for (const std::string& line : lines)
        screen += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    return screen;
}

ToolResult runTool(const ToolRun::Arguments& command)
{
    ToolRun run(command);
    const int exitCode = run.finish();
    return {exitCode, run.getOutput(), run.getErrors()};
}

ToolRun::Arguments panelctl(const ToolRun::Arguments& arguments)
{
    ToolRun::Arguments command{MORVANE_PANELCTL};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

ToolRun::Arguments onBus(const ToolRun::Arguments& bus, const ToolRun::Arguments& program)
{
    ToolRun::Arguments command{MORVANE_PANELSIM, "run"};
    command.insert(command.end(), bus.begin(), bus.end());
    command.emplace_back("--");
    command.insert(command.end(), program.begin(), program.end());
    return command;
}

ToolRun::Arguments panelctlOn(const ToolRun::Arguments& bus, const ToolRun::Arguments& arguments)
{
    return onBus(bus, panelctl(arguments));
}

} // namespace Vantor
