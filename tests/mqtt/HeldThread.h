#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

#include <sys/ptrace.h>
#include <sys/wait.h>

#include "tests/support/TemporaryFolder.h"

namespace Vantor {

// A thread of a child, or a grandchild, stands still while this lives; the others go on.
//
// Threads: one.
class HeldThread {
public:
    // By the thread's name; without one the first.
    HeldThread(pid_t process, const std::string& name) : m_thread(name.empty() ? process : find(process, name))
    {
        if (ptrace(PTRACE_SEIZE, m_thread, nullptr, nullptr) != 0 ||
            ptrace(PTRACE_INTERRUPT, m_thread, nullptr, nullptr) != 0 || waitpid(m_thread, nullptr, __WALL) != m_thread)
            throw std::runtime_error("can't hold the thread " + name);
    }
    ~HeldThread() { ptrace(PTRACE_DETACH, m_thread, nullptr, nullptr); }
    HeldThread(const HeldThread&) = delete;
    HeldThread& operator=(const HeldThread&) = delete;

private:
    static pid_t find(pid_t process, const std::string& name)
    {
        for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task"))
            if (contentOf(entry.path() / "comm") == name + "\n")
                return std::stoi(entry.path().filename());
        throw std::runtime_error("no thread " + name);
    }

    const pid_t m_thread;
};

} // namespace Vantor
