#include "panelctl/command/Program.h"

#include "libMorvaneHostUsb/Log.h"
#include "panelctl/command/Command.h"
#include "panelctl/session/Session.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Interrupt.h"
#include "panelctl/terminal/LogRelay.h"

#include <exception>
#include <optional>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace Vantor {

namespace {

// Where standard input is closed, nothing else may take its number and be read in its
// place: a read fails as it should.
void reserveStandardInput()
{
    if (fcntl(STDIN_FILENO, F_GETFD) < 0)
        open("/", O_PATH);
}

} // namespace

int runProgram(const std::function<void(Output&, const Interrupt&)>& body, Output::Form form)
{
    reserveStandardInput();
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
    setLogLevel(static_cast<LogLevel::Level>(level));
    std::optional<LogRelay> relay; // what is above is wanted whole
    if (level < LogLevel::Detail)
        relay.emplace(command.getExpectedLogLines());
    Session session(interrupt, command.wantsPackets());
    command.run(session, output);
}

} // namespace Vantor
