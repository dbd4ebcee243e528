#include "panel2mqtt/broker/Loopback.h"
#include "panel2mqtt/settings/BrokerAddress.h"
#include "panel2mqtt/settings/SettingsFile.h"
#include "panelctl/terminal/Interrupt.h"
#include "panelctl/terminal/Output.h"
#include "panelfleet/CommandLine.h"
#include "panelfleet/FleetFailure.h"
#include "panelfleet/FleetRun.h"

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <variant>

#include <fcntl.h>
#include <unistd.h>

using namespace Vantor;

namespace {

FleetFailure usageFailure(const std::string& text)
{
    return {FleetExit::Usage, FailureKind::usage, text};
}

// Where there is one.
std::string findConfiguration()
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody sets it
    const char* const home = std::getenv("HOME");
    const std::string file = home != nullptr ? std::string(home) + "/.config/panelfleet.toml" : "";
    std::error_code error;
    return !file.empty() && std::filesystem::exists(file, error) ? file : "";
}

BrokerSettings readBroker(const CommandLine& line)
{
    const std::string file = line.configurationFile.empty() ? findConfiguration() : line.configurationFile;
    auto surroundings = SettingsFile::Surroundings::ofProcess();
    surroundings.machineName = "panelfleet"; // which is no host of panels
    auto read =
        file.empty() ? SettingsFile::parse("", "nothing", surroundings) : SettingsFile::read(file, surroundings);
    if (const auto* const problems = std::get_if<SettingsFile::Problems>(&read)) {
        std::string text;
        for (const std::string& problem : *problems)
            text += (text.empty() ? "" : "\n") + problem;
        throw usageFailure(text);
    }
    BrokerSettings broker = std::get<Settings>(std::move(read)).broker;
    try {
        if (!line.broker.empty())
            setBrokerAddress(broker, line.broker);
    } catch (const std::invalid_argument& error) {
        throw usageFailure(std::string("--broker: ") + error.what());
    }
    if (!broker.usesTls && !isLoopback(broker.address))
        throw usageFailure("--broker: " + broker.address +
                           " is another machine: expected tls = true in the configuration");
    return broker;
}

// Where one is closed, nothing else may take its number.
void reserveStreams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) < 0)
            open("/", O_PATH);
    }
}

int runFleet(const CommandLine& line)
{
    Output output(line.isJson ? Output::Form::Json : Output::Form::Text);
    const auto endBy = [&output](const Failure& failure) {
        output.complain(failure);
        return failure.getExitCode();
    };
    try {
        const Interrupt interrupt;
        return static_cast<int>(FleetRun(line, output, interrupt).run(readBroker(line)));
    } catch (const Failure& failure) {
        return endBy(failure);
    } catch (const std::exception& error) {
        return endBy({ExitCode::Failed, FailureKind::unexpected, std::string("unexpected: ") + error.what()});
    }
}

} // namespace

int main(int argc, char** argv)
{
    try {
        reserveStreams();
        const CommandLine line = CommandLine::parse(argc, argv);
        if (line.command != CommandLine::Command::Nothing)
            return runFleet(line);
        if (line.exitCode == 0)
            std::cout << line.text << std::flush;
        else
            printError(line.text + "\n`panelfleet --help` shows what there is.");
        return line.exitCode != 0 || std::cout.good() ? line.exitCode : 1;
    } catch (const std::exception& error) {
        printError(error.what());
        return 1;
    }
}
