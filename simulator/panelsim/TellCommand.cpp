#include "simulator/panelsim/TellCommand.h"

#include "simulator/panelsim/ControlClient.h"
#include "simulator/panelsim/ControlPath.h"
#include "simulator/panelsim/LineInput.h"
#include "simulator/panelsim/OrderLine.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <unistd.h>

namespace Vantor {

namespace {

// A plug waits for a program that does not read its hotplug events, perhaps in a debugger.
constexpr std::chrono::seconds tellPatience{30};

std::string describeAll(const std::vector<ControlPath::Running>& all)
{
    std::string lines;
    for (const ControlPath::Running& running : all)
        lines += running.path + "  " + std::to_string(running.process) + "  " + running.command + "\n";
    return lines;
}

std::string findSocket(const PanelsimOptions& options)
{
    if (!options.controlPath.empty())
        return options.controlPath;
    const char* const inherited = std::getenv(ControlPath::variable); // NOLINT(concurrency-mt-unsafe): one thread
    if (inherited != nullptr && *inherited != '\0')
        return inherited;
    const std::string folder = ControlPath::folder();
    const auto running = ControlPath::find(folder);
    if (running.empty())
        throw std::runtime_error("no simulation is running that has its socket in " + folder + "; --to names another");
    if (running.size() > 1) {
        std::string lines = describeAll(running);
        lines.pop_back();
        throw std::runtime_error(std::to_string(running.size()) + " simulations are running; --to names one:\n" +
                                 lines);
    }
    // Perhaps another one of this user, the one that was meant having ended.
    std::fprintf(stderr, "panelsim: telling simulation %d: %s\n", static_cast<int>(running.front().process),
                 running.front().command.c_str());
    return running.front().path;
}

// False when it was refused.
bool tellLine(ControlClient& simulation, const std::string& line)
{
    const std::string complaint = simulation.tell(line);
    if (!complaint.empty())
        std::fprintf(stderr, "panelsim: %s\n", complaint.c_str());
    return complaint.empty();
}

bool tellInput(ControlClient& simulation)
{
    LineInput input(STDIN_FILENO);
    bool isAllDone = true;
    while (input.getDescriptor() >= 0) {
        input.read();
        while (const auto line = input.takeLine()) {
            const std::string text(OrderLine::contentOf(*line));
            if (!text.empty())
                isAllDone = tellLine(simulation, text) && isAllDone;
        }
    }
    if (!input.hasEnded())
        throw std::system_error(errno, std::generic_category(), "cannot read standard input");
    return isAllDone;
}

} // namespace

int tellSimulation(const PanelsimOptions& options)
{
    if (options.list) {
        std::printf("%s", describeAll(ControlPath::find(ControlPath::folder())).c_str());
        return 0;
    }
    ControlClient simulation(findSocket(options), tellPatience);
    bool isAllDone = true;
    if (options.fromInput)
        isAllDone = tellInput(simulation);
    for (const std::string& command : options.commands)
        isAllDone = tellLine(simulation, command) && isAllDone;
    return isAllDone ? 0 : PanelsimExit::refused;
}

} // namespace Vantor
