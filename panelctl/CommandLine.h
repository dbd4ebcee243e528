#pragma once

#include "panelctl/command/Command.h"
#include "panelctl/terminal/Output.h"

#include <functional>
#include <memory>
#include <string>

namespace CLI {
class App;
}

namespace Vantor {

// What was asked for. The one place that knows the argument parser.
struct CommandLine {
    std::unique_ptr<Command> command; // empty: print `text` and be done
    std::string text;
    int logLevel = 0;

    // In which form to answer, and also to refuse arguments that can't be parsed.
    static Output::Form formOf(int argc, char** argv);

    // Throws Failure (usage).
    static CommandLine parse(int argc, char** argv);

    // The definitions themselves, for what else is made of them.
    static void show(const std::function<void(const CLI::App&)>& look);
};

} // namespace Vantor
