#include "panelfleet/CommandLine.h"

#include <cstdio>
#include <exception>
#include <iostream>

using namespace Vantor;

namespace {

int runFleet(int argc, char** argv)
{
    const CommandLine line = CommandLine::parse(argc, argv);
    if (line.command == CommandLine::Command::Nothing) {
        if (line.exitCode == 0)
            std::cout << line.text;
        else
            std::cerr << "panelfleet: " << line.text << "\n`panelfleet --help` shows what there is.\n";
        return line.exitCode;
    }
    std::cerr << "panelfleet: not there yet\n";
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return runFleet(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "panelfleet: %s\n", error.what());
        return 1;
    }
}
