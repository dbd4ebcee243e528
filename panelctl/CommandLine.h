#pragma once

#include "panelctl/command/Command.h"

#include <memory>
#include <string>

namespace Vantor {

// What was asked for. The one place that knows the argument parser.
struct CommandLine {
    std::unique_ptr<Command> command; // empty: print `text` and be done
    std::string text;
    int logLevel = 0;

    // Throws Failure (usage).
    static CommandLine parse(int argc, char** argv);
};

} // namespace Vantor
