#include "ToolRun.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#ifndef PANELSIM
#define PANELSIM ""
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

[[noreturn]] void become(const ToolRun::Arguments& command, int output, int errors)
{
    dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(errors, STDERR_FILENO);
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
    if (m_process == 0)
        become(command, output[1], errors[1]);
    close(output[1]);
    close(errors[1]);
    m_outputEnd = output[0];
    m_errorEnd = errors[0];
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
    const auto deadline = Clock::now() + patience;
    while (m_output.find(text) == std::string::npos)
        if (!readSome(deadline)) {
            ADD_FAILURE() << "no '" << text << "' on standard output:\n" << m_output << m_errors;
            return;
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

ToolResult runTool(const ToolRun::Arguments& command)
{
    ToolRun run(command);
    const int exitCode = run.finish();
    return {exitCode, run.getOutput(), run.getErrors()};
}

ToolRun::Arguments panelctl(const ToolRun::Arguments& arguments)
{
    ToolRun::Arguments command{PANELCTL};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

ToolRun::Arguments panelctlOn(const ToolRun::Arguments& bus, const ToolRun::Arguments& arguments)
{
    ToolRun::Arguments command{PANELSIM, "run"};
    command.insert(command.end(), bus.begin(), bus.end());
    command.emplace_back("--");
    const ToolRun::Arguments tool = panelctl(arguments);
    command.insert(command.end(), tool.begin(), tool.end());
    return command;
}

TemporaryFile::TemporaryFile(const std::string& content) : m_path("/tmp/panelctlTest.XXXXXX")
{
    const int descriptor = mkstemp(m_path.data());
    if (descriptor < 0)
        throw std::runtime_error("no temporary file");
    close(descriptor);
    std::ofstream(m_path, std::ios::binary) << content;
}

TemporaryFile::~TemporaryFile()
{
    std::remove(m_path.c_str());
}

std::string TemporaryFile::read() const
{
    std::ostringstream content;
    content << std::ifstream(m_path, std::ios::binary).rdbuf();
    return content.str();
}

TemporaryFolder::TemporaryFolder() : m_path("/tmp/panelctlTest.XXXXXX")
{
    if (mkdtemp(m_path.data()) == nullptr)
        throw std::runtime_error("no temporary folder");
}

TemporaryFolder::~TemporaryFolder()
{
    std::filesystem::remove_all(m_path);
}

} // namespace Vantor
