#include "simulator/usbfs/ClientProcess.h"

#include <system_error>

#include <spawn.h>
#include <sys/wait.h>

namespace Vantor {

namespace {

std::vector<char*> pointersTo(const std::vector<std::string>& strings)
{
    std::vector<char*> pointers;
    pointers.reserve(strings.size() + 1);
    for (const std::string& string : strings)
        pointers.push_back(const_cast<char*>(string.c_str())); // posix_spawn does not write there
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace

ClientProcess::ClientProcess(const std::vector<std::string>& program, const std::vector<std::string>& environment,
                             const Signals& signals, const std::vector<Redirection>& redirections)
{
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    for (const Redirection& redirection : redirections)
        posix_spawn_file_actions_adddup2(&files, redirection.source, redirection.descriptor);

    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &signals.blocked);
    posix_spawnattr_setsigdefault(&attributes, &signals.defaulted);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    const int error = posix_spawnp(&m_id, program.front().c_str(), &files, &attributes, pointersTo(program).data(),
                                   pointersTo(environment).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0)
        throw std::system_error(error, std::generic_category(), program.front());
}

void ClientProcess::sendSignal(int number) const
{
    if (!m_ended)
        kill(m_id, number);
}

bool ClientProcess::hasEnded()
{
    m_ended = m_ended || waitpid(m_id, &m_status, WNOHANG) == m_id;
    return m_ended;
}

int ClientProcess::getExitCode() const
{
    constexpr int signalBase = 128;
    return WIFSIGNALED(m_status) ? signalBase + WTERMSIG(m_status) : WEXITSTATUS(m_status);
}

} // namespace Vantor
