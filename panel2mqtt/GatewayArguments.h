#pragma once

#include <functional>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace Vantor {

// The command line of panel2mqtt.
struct GatewayArguments {
    enum class Command { Run, Check };

    static constexpr const char* defaultFile = "/etc/panel2mqtt/panel2mqtt.toml";

    std::optional<Command> command; // without: everything is said already, exit with the code
    int exitCode = 0;

    std::string file;    // empty: the default one, if it exists
    std::string host;    // empty: the configuration's
    std::string broker;  // ADDRESS[:PORT]; empty: the configuration's
    bool isJson = false; // of Run
};

// Writes help, version and complaints itself.
GatewayArguments parseGatewayArguments(int argc, char** argv);

// Shows the definitions themselves, for what else is made of them.
void showGatewayArguments(const std::function<void(const CLI::App&)>& look);

} // namespace Vantor
