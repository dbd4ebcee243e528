#include "libMorvaneHostUsb/Log.h"
#include "panel2mqtt/Gateway.h"
#include "panel2mqtt/GatewayArguments.h"
#include "panel2mqtt/GatewayLog.h"
#include "panel2mqtt/broker/Loopback.h"
#include "panel2mqtt/settings/BrokerAddress.h"
#include "panel2mqtt/settings/SettingsCheck.h"
#include "panel2mqtt/settings/SettingsFile.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <stdexcept>

#include <CLI/CLI.hpp>
#include <libusb-1.0/libusb.h>
#include <sys/signalfd.h>

using namespace Vantor;

namespace {

// SIGTERM and SIGINT can be read there; in no thread that is begun later do they do anything else.
int makeSignalDescriptor()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

// Nothing, when something is wrong, which has been told.
std::optional<Settings> readSettings(const GatewayArguments& arguments)
{
    const bool isNamed = !arguments.file.empty();
    const std::string file = isNamed ? arguments.file : GatewayArguments::defaultFile;
    const auto surroundings = SettingsFile::Surroundings::ofProcess();
    const bool hasFile = isNamed || std::filesystem::exists(file);
    auto read = hasFile ? SettingsFile::read(file, surroundings) : SettingsFile::parse("", "nothing", surroundings);
    if (const auto* const problems = std::get_if<SettingsFile::Problems>(&read)) {
        for (const std::string& problem : *problems)
            std::cerr << "panel2mqtt: " << problem << '\n';
        return std::nullopt;
    }
    auto settings = std::get<Settings>(std::move(read));
    if (!arguments.host.empty())
        settings.host = arguments.host;
    if (!arguments.broker.empty())
        setBrokerAddress(settings.broker, arguments.broker);
    if (!SettingsFile::isHostName(settings.host))
        throw CLI::ValidationError("--host", "'" + settings.host +
                                                 "' can't be in topics: expected letters, digits, "
                                                 "'-', '_' and '.', 1 to 64, not 'all'");
    if (!settings.broker.usesTls && !isLoopback(settings.broker.address))
        throw CLI::ValidationError("--broker", settings.broker.address + " is another machine: expected tls = true in "
                                                                         "the configuration");
    return settings;
}

int serve(const GatewayArguments& arguments)
{
    const int signals = makeSignalDescriptor();
    const auto settings = readSettings(arguments);
    if (!settings)
        return 2;
    const GatewayLog log(arguments.isJson);
    if (libusb_init(nullptr) != 0) { // the library would go on, and crash
        log.say(GatewayLog::Level::Error, "libusb does not start");
        return 1;
    }
    libusb_exit(nullptr);
    setLogSink([&log](LogLevel::Level level, std::string_view text) {
        log.say(level == LogLevel::Error ? GatewayLog::Level::Error : GatewayLog::Level::Info, std::string(text));
    });
    {
        Gateway gateway(*settings, log);
        gateway.run(signals);
    }
    setLogSink({});
    return 0;
}

int check(const GatewayArguments& arguments)
{
    const auto settings = readSettings(arguments);
    if (!settings)
        return 1;
    const auto findings = SettingsCheck::run(*settings);
    for (const auto& finding : findings)
        std::cout << (finding.isWrong ? "wrong: " : "doubtful: ") << finding.text << "\n  " << finding.remedy << '\n';
    if (findings.empty())
        std::cout << "nothing is wrong\n";
    return SettingsCheck::getExitCode(findings);
}

int dispatch(int argc, char** argv)
{
    const GatewayArguments arguments = parseGatewayArguments(argc, argv);
    if (!arguments.command)
        return arguments.exitCode;
    return *arguments.command == GatewayArguments::Command::Run ? serve(arguments) : check(arguments);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return dispatch(argc, argv);
    } catch (const CLI::ValidationError& error) {
        std::cerr << "panel2mqtt: " << error.what() << '\n';
        return 2;
    } catch (const std::invalid_argument& error) {
        std::cerr << "panel2mqtt: --broker: " << error.what() << '\n';
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "panel2mqtt: " << error.what() << '\n';
        return 1;
    }
}
