#include "panelctl/command/Program.h"

#include "panelctl/command/Command.h"
#include "panelctl/session/LibraryLog.h"
#include "panelctl/session/Session.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Interrupt.h"

#include <exception>
#include <optional>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace Vantor {

namespace {

// Where one is closed, nothing else may take its number and be read or written in its
// place: that fails as it should.
void reserveStandardStreams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(stream, F_GETFD) < 0)
            open("/", O_PATH);
}

} // namespace

int runProgram(const std::function<void(Output&, const Interrupt&)>& body, Output::Form form)
{
    reserveStandardStreams();
    Output output(form);
    const auto endBy = [&output](const Failure& failure) {
        output.complain(failure);
        return failure.getExitCode();
    };
    try {
        const Interrupt interrupt;
        body(output, interrupt);
        return static_cast<int>(ExitCode::Success);
    } catch (const Failure& failure) {
        return endBy(failure);
    } catch (const std::exception& error) {
        return endBy({ExitCode::Failed, FailureKind::unexpected, std::string("unexpected: ") + error.what()});
    }
}

void runCommand(Command& command, int level, Output& output, const Interrupt& interrupt)
{
    const LibraryLog log(output, level, command.getExpectedLogLines());
    command.beforeStart();
    std::optional<Session> session;
    try {
        session.emplace(interrupt, command.wantsPackets());
    } catch (const NoLibusb& failure) {
        if (command.runWithoutLibrary(failure, output))
            return;
        throw;
    }
    command.run(*session, output);
}

} // namespace Vantor
