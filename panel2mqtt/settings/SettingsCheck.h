#pragma once

#include "panel2mqtt/settings/Settings.h"

#include <chrono>
#include <string>
#include <vector>

namespace Vantor {

// What is wrong around settings that were read: files, certificates, the broker's place.
// As the user that runs it sees it: files that the gateway's own user can't read are found
// by that user alone.
//
// Threads: any; blocks, see BrokerProbe.
class SettingsCheck {
public:
    struct Finding {
        bool isWrong;       // else doubtful: it may be meant so
        std::string text;   // a line
        std::string remedy; // a line
    };

    // `limit` is for each address of the broker.
    static std::vector<Finding> run(const Settings& settings,
                                    std::chrono::milliseconds limit = std::chrono::seconds(3));

    // 1 if something is wrong, else 0.
    static int getExitCode(const std::vector<Finding>& findings);
};

} // namespace Vantor
