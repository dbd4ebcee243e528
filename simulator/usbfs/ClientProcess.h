#pragma once

#include <csignal>
#include <string>
#include <vector>

#include <sys/types.h>

namespace Vantor {

// A child process. Not waited for by the destructor.
class ClientProcess {
public:
    struct Redirection {
        int descriptor; // of the child
        int source;     // of this process
    };

    // How it takes signals.
    struct Signals {
        sigset_t blocked;
        sigset_t defaulted{}; // also if this process ignores them
    };

    // Starts `program` (searched in PATH) with exactly this environment and these signals.
    // Throws std::system_error with the cause when it cannot be executed.
    ClientProcess(const std::vector<std::string>& program, const std::vector<std::string>& environment,
                  const Signals& signals, const std::vector<Redirection>& redirections = {});

    void sendSignal(int number) const;

    // True once it has ended.
    bool hasEnded();

    // Its exit code, or 128 plus the number of the signal that ended it.
    int getExitCode() const;

private:
    pid_t m_id = -1;
    bool m_ended = false;
    int m_status = 0;
};

} // namespace Vantor
