#pragma once

#include "panelfleet/rollout/Selection.h"

#include <chrono>
#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace Vantor {

// What was asked for. The one place that knows the argument parser.
//
// Threads: a plain value.
struct CommandLine {
    enum class Command { Nothing, List, Flash, Status };

    Command command = Command::Nothing; // then print `text` and end with `exitCode`
    std::string text;
    int exitCode = 0; // other than 0: `text` is a complaint

    std::string configurationFile; // empty: that of the user, if there is one
    std::string broker;            // "ADDRESS[:PORT]"; empty: as configured
    bool isJson = false;
    Selection selection;

    std::string id; // the job's
    std::string mainFile;
    std::string servoFile;
    std::string fileMain; // on the hosts
    std::string fileServo;
    std::string sumMain; // of those, 64 hexadecimal digits
    std::string sumServo;
    unsigned int atOnce = 4;
    unsigned int stopAfter = 1;
    std::chrono::seconds wait{0};
    bool isDryRun = false;

    static CommandLine parse(int argc, char** argv);

    // The definitions themselves, for what else is made of them.
    static void show(const std::function<void(const CLI::App&)>& look);
};

} // namespace Vantor
