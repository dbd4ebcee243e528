#include "panel2mqtt/GatewayArguments.h"

#include "libMorvaneHostUsb/Version.h"

#include <CLI/CLI.hpp>

namespace Vantor {

namespace {

constexpr const char* runFooter = "Exit codes:\n"
                                  "  0  ended by SIGTERM or SIGINT\n"
                                  "  1  it can't go on; why, the log says\n"
                                  "  2  wrong usage, or a configuration that can't be";
constexpr const char* checkFooter = "It reads what the gateway reads, and asks whether anything answers where the\n"
                                    "broker is. Run it as the gateway's user, who may read less than root.\n"
                                    "\n"
                                    "Exit codes:\n"
                                    "  0  nothing is wrong; what is doubtful is told\n"
                                    "  1  something is wrong\n"
                                    "  2  wrong usage";

void define(CLI::App& app, GatewayArguments& arguments)
{
    using Command = GatewayArguments::Command;
    app.name("panel2mqtt");
    app.description("Serves this host's panels over MQTT 5.");
    app.set_version_flag("--version", "panel2mqtt " MORVANE_VERSION_STRING);
    app.require_subcommand(1);
    CLI::App& run = *app.add_subcommand("run", "Serves until SIGTERM or SIGINT.");
    CLI::App& check = *app.add_subcommand("check", "Says what is wrong with the configuration.");
    run.callback([&arguments] { arguments.command = Command::Run; });
    check.callback([&arguments] { arguments.command = Command::Check; });
    for (CLI::App* const command : {&run, &check}) {
        command
            ->add_option("--config", arguments.file,
                         std::string("The configuration; by default\n") + GatewayArguments::defaultFile +
                             ", if it exists.")
            ->option_text("FILE");
        command->add_option("--host", arguments.host, "This host's name in topics.")->option_text("NAME");
        command->add_option("--broker", arguments.broker, "Where the broker is.")->option_text("ADDRESS[:PORT]");
    }
    run.add_flag("--json", arguments.isJson, "Logs JSON, an object a line.");
    run.footer(runFooter);
    check.footer(checkFooter);
}

} // namespace

GatewayArguments parseGatewayArguments(int argc, char** argv)
{
    GatewayArguments arguments;
    CLI::App app;
    define(app, arguments);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        arguments.command.reset();
        arguments.exitCode = app.exit(error) == 0 ? 0 : 2;
    }
    return arguments;
}

void showGatewayArguments(const std::function<void(const CLI::App&)>& look)
{
    GatewayArguments arguments;
    CLI::App app;
    define(app, arguments);
    look(app);
}

} // namespace Vantor
