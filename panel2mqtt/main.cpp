#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/Version.h"
#include "panel2mqtt/BrokerTrial.h"
#include "panel2mqtt/Gateway.h"
#include "panel2mqtt/GatewayLog.h"
#include "panel2mqtt/broker/Loopback.h"
#include "panel2mqtt/settings/SettingsCheck.h"
#include "panel2mqtt/settings/SettingsFile.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <libusb-1.0/libusb.h>
#include <sys/signalfd.h>

using namespace Vantor;

namespace {

constexpr const char* defaultFile = "/etc/panel2mqtt/panel2mqtt.toml";

struct Options {
    std::string file;
    std::string host;
    std::string broker; // ADDRESS[:PORT]
    bool isJson = false;
};

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

// Port 0 when there is none in it. An IPv6 address has brackets where a port follows.
void setBroker(BrokerSettings& settings, const std::string& text)
{
    const auto colon = text.rfind(':');
    const bool isIpv6 = text.find(':') != colon && text.back() != ']' && text.front() != '[';
    const bool hasPort = colon != std::string::npos && !isIpv6 && text.back() != ']';
    settings.address = hasPort ? text.substr(0, colon) : text;
    if (settings.address.size() > 2 && settings.address.front() == '[')
        settings.address = settings.address.substr(1, settings.address.size() - 2);
    if (!hasPort)
        return;
    const std::string port = text.substr(colon + 1);
    const bool isNumber =
        !port.empty() && port.size() <= 5 && port.find_first_not_of("0123456789") == std::string::npos;
    const int number = isNumber ? std::stoi(port) : 0;
    if (number < 1 || number > 65535)
        throw CLI::ValidationError("--broker", "'" + port + "' is no port: expected 1 to 65535");
    settings.port = static_cast<std::uint16_t>(number);
}

// Nothing, when something is wrong, which has been told.
std::optional<Settings> readSettings(const Options& options)
{
    const bool isNamed = !options.file.empty();
    const std::string file = isNamed ? options.file : defaultFile;
    const auto surroundings = SettingsFile::Surroundings::ofProcess();
    const bool hasFile = isNamed || std::filesystem::exists(file);
    auto read = hasFile ? SettingsFile::read(file, surroundings) : SettingsFile::parse("", "nothing", surroundings);
    if (const auto* const problems = std::get_if<SettingsFile::Problems>(&read)) {
        for (const std::string& problem : *problems)
            std::cerr << "panel2mqtt: " << problem << '\n';
        return std::nullopt;
    }
    auto settings = std::get<Settings>(std::move(read));
    if (!options.host.empty())
        settings.host = options.host;
    if (!options.broker.empty())
        setBroker(settings.broker, options.broker);
    if (!SettingsFile::isHostName(settings.host))
        throw CLI::ValidationError("--host", "'" + settings.host +
                                                 "' can't be in topics: expected letters, digits, "
                                                 "'-', '_' and '.', 1 to 64, not 'all'");
    if (!settings.broker.usesTls && !isLoopback(settings.broker.address))
        throw CLI::ValidationError("--broker", settings.broker.address + " is another machine: expected tls = true in "
                                                                         "the configuration");
    return settings;
}

int serve(const Options& options)
{
    const int signals = makeSignalDescriptor();
    const auto settings = readSettings(options);
    if (!settings)
        return 2;
    const GatewayLog log(options.isJson);
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

// What only the broker knows.
void tryBroker(const Settings& settings, std::vector<SettingsCheck::Finding>& findings)
{
    const BrokerTrial trial = BrokerTrial::run(settings, std::chrono::seconds(3));
    const std::string topics = "panel/1/" + settings.host + "/";
    if (trial.outcome == BrokerTrial::Outcome::NotTaken)
        findings.push_back({true, "broker: " + trial.reason,
                            "put it right here or there; a gateway that runs takes it at its next try"});
    if (trial.outcome == BrokerTrial::Outcome::Unheard)
        findings.push_back({true, "broker: what is published to " + topics + "told does not come back",
                            "let this host read and write " + topics + "# in the broker's access list"});
}

int check(const Options& options)
{
    const auto settings = readSettings(options);
    if (!settings)
        return 1;
    auto findings = SettingsCheck::run(*settings);
    if (SettingsCheck::getExitCode(findings) == 0)
        tryBroker(*settings, findings);
    for (const auto& finding : findings)
        std::cout << (finding.isWrong ? "wrong: " : "doubtful: ") << finding.text << "\n  " << finding.remedy << '\n';
    if (findings.empty())
        std::cout << "nothing is wrong\n";
    return SettingsCheck::getExitCode(findings);
}

int dispatch(int argc, char** argv)
{
    CLI::App app("Serves this host's panels over MQTT 5.", "panel2mqtt");
    app.set_version_flag("--version", "panel2mqtt " MORVANE_VERSION_STRING);
    app.require_subcommand(1);
    Options options;
    CLI::App& run = *app.add_subcommand("run", "Serves until SIGTERM or SIGINT.");
    CLI::App& checking = *app.add_subcommand("check", "Says what is wrong with the configuration.");
    for (CLI::App* const command : {&run, &checking}) {
        command
            ->add_option("--config", options.file,
                         std::string("The configuration; by default ") + defaultFile + ", if it exists.")
            ->option_text("FILE");
        command->add_option("--host", options.host, "This host's name in topics.")->option_text("NAME");
        command->add_option("--broker", options.broker, "Where the broker is.")->option_text("ADDRESS[:PORT]");
    }
    run.add_flag("--json", options.isJson, "Logs JSON, an object a line.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    return run.parsed() ? serve(options) : check(options);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return dispatch(argc, argv);
    } catch (const CLI::ValidationError& error) {
        std::cerr << "panel2mqtt: " << error.what() << '\n';
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "panel2mqtt: " << error.what() << '\n';
        return 1;
    }
}
