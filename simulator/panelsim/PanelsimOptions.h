#pragma once

#include "protocol/PacketType.h"
#include "simulator/bus/PanelOrder.h"
#include "simulator/panel/BootLoader.h"
#include "simulator/panel/PanelModel.h"
#include "simulator/panel/PanelScreen.h"
#include "simulator/usbip/VhciPorts.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Vantor {

// Exit codes of panelsim, beside those of the program that it runs.
namespace PanelsimExit {
constexpr int refused = 1;      // a command that was told could not be carried out
constexpr int violation = 120;  // all went well but that a panel saw a violation of the wire
constexpr int difference = 121; // or that the program sent something else than expected
constexpr int failure = 125;    // wrong usage, or panelsim itself failed
constexpr int notExecutable = 126;
constexpr int notFound = 127;
constexpr int signalBase = 128; // plus the number of the signal that ended the program
} // namespace PanelsimExit

// The command line of panelsim.
struct PanelsimOptions {
    enum class Subcommand {
        Run,    // a program on a virtual bus
        Attach, // panels to the kernel's own bus
        Tell,   // commands to one of these two
    };

    Subcommand subcommand = Subcommand::Run;
    unsigned int panels = 1; // plugged at the start
    std::uint64_t seed = 1;
    std::uint16_t maxPacketSize = 8192;
    std::uint16_t vendorId = PanelModel::Options{}.vendorId;
    std::uint16_t productId = PanelModel::Options{}.productId;
    std::string logFile;     // empty: none
    std::string captureFile; // empty: none
    std::map<std::uint16_t, PanelScreen::Size> lcdSizes;
    std::string pngFolder; // empty: no pictures
    bool show = false;
    std::string flashFolder; // empty: flash lasts as long as the run
    std::chrono::nanoseconds chunkTime = BootLoader::Options{}.chunkTime;
    std::vector<TimedOrder> timedOrders;
    std::string scriptFile; // more of them; empty: none

    std::optional<std::string> webAddress; // of a page that shows it, as parseWebAddress takes it
    std::string controlPath;               // its socket, of Tell the other's; empty: by itself

    // Of Run.
    bool scatterGather = true;
    bool fast = false;
    bool wholeOrder = false;
    std::string replayFile;            // empty: panels do as panels do
    std::string expectFile;            // empty: nothing is compared
    std::set<PacketType> ignoredTypes; // of replaying and comparing
    bool autosuspend = false;
    std::string kernelDriver; // empty: none
    std::vector<std::string> program;

    // Of Attach.
    std::string vhciFolder = VhciPorts::defaultFolder;

    // Of Tell.
    bool list = false;
    bool fromInput = false;
    std::vector<std::string> commands;
};

struct PanelsimArguments {
    PanelsimOptions options;
    bool run = false; // false: everything is said already, exit with this code:
    int exitCode = 0;
};

// Parses the command line; writes help, version and complaints itself.
PanelsimArguments parsePanelsimArguments(int argc, char** argv);

// Shows the definitions themselves, for what else is made of them.
void showPanelsimArguments(const std::function<void(const CLI::App&)>& look);

} // namespace Vantor
