// panelsim: simulated panels, on a virtual USB bus for one program or on the kernel's own.
#include "simulator/panelsim/AttachCommand.h"
#include "simulator/panelsim/PanelsimOptions.h"
#include "simulator/panelsim/RunCommand.h"
#include "simulator/panelsim/TellCommand.h"

#include <cstdio>
#include <exception>

using namespace Vantor;

int main(int argc, char** argv)
{
    const PanelsimArguments arguments = parsePanelsimArguments(argc, argv);
    if (!arguments.run)
        return arguments.exitCode;
    try {
        switch (arguments.options.subcommand) {
        case PanelsimOptions::Subcommand::Run:
            return runProgram(arguments.options);
        case PanelsimOptions::Subcommand::Attach:
            return attachPanels(arguments.options);
        case PanelsimOptions::Subcommand::Tell:
            return tellSimulation(arguments.options);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "panelsim: %s\n", error.what());
    }
    return PanelsimExit::failure;
}
