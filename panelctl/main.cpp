#include "libMorvaneHostUsb/Log.h"
#include "panelctl/CommandLine.h"
#include "panelctl/Failure.h"
#include "panelctl/Interrupt.h"
#include "panelctl/LogRelay.h"
#include "panelctl/Output.h"
#include "panelctl/Session.h"

#include <exception>
#include <optional>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace Vantor;

// Where standard input is closed, nothing else may take its number and be read in its
// place: a read fails as it should.
void reserveStandardInput()
{
    if (fcntl(STDIN_FILENO, F_GETFD) < 0)
        open("/", O_PATH);
}

void runTool(int argc, char** argv)
{
    reserveStandardInput();
    Output output;
    const Interrupt interrupt;
    const CommandLine line = CommandLine::parse(argc, argv);
    if (!line.command) {
        output.text(line.text);
        return;
    }
    setLogLevel(static_cast<LogLevel::Level>(line.logLevel));
    std::optional<LogRelay> relay; // what is above is wanted whole
    if (line.logLevel < LogLevel::Detail)
        relay.emplace(line.command->getExpectedLogLines());
    Session session(interrupt, line.command->wantsPackets());
    line.command->run(session, output);
}

} // namespace

// By the time a failure is reported here, the library has been shut down.
int main(int argc, char** argv)
{
    try {
        runTool(argc, argv);
        return static_cast<int>(ExitCode::Success);
    } catch (const Failure& failure) {
        if (*failure.what() != '\0')
            printError(failure.what());
        return failure.getExitCode();
    } catch (const std::exception& error) {
        printError(std::string("unexpected: ") + error.what());
        return static_cast<int>(ExitCode::Failed);
    }
}
