#pragma once

#include "panel2mqtt/settings/Settings.h"

#include <string>
#include <variant>
#include <vector>

namespace Vantor {

// Reads the configuration file, TOML.
//
// Threads: stateless; any thread.
class SettingsFile {
public:
    // What settings are without a file.
    struct Surroundings {
        std::string machineName;
        std::string credentialsFolder; // systemd's, with the password in a file of that name; empty: none

        static Surroundings ofProcess();
    };

    // Each a line: "FILE:LINE: KEY: what is expected".
    using Problems = std::vector<std::string>;

    // All that is wrong with a file, in its order; of what is no TOML the first place.
    static std::variant<Settings, Problems> read(const std::string& path, const Surroundings& surroundings);

    // A file's content; `name` is in what is said of it. Of an empty one, the defaults.
    static std::variant<Settings, Problems> parse(const std::string& content, const std::string& name,
                                                  const Surroundings& surroundings);

    // Whether topics can have it.
    static bool isHostName(const std::string& name);
};

} // namespace Vantor
