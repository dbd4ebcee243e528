#include "packaging/completion/CompletionFile.h"
#include "panelctl/CommandLine.h"
#include "panelctl/picture/DitherNames.h"
#include "panelctl/session/PacketNames.h"

#include <sstream>
#include <string>

namespace {

using namespace Vantor;

// "DeviceInformation, LcdSlice"
std::vector<std::string> packetNames()
{
    std::vector<std::string> names;
    std::istringstream text(PacketNames::listAll());
    for (std::string name; std::getline(text >> std::ws, name, ',');)
        names.push_back(name);
    return names;
}

} // namespace

int main(int argc, char** argv)
{
    ProgramShape program;
    CommandLine::show([&program](const CLI::App& app) {
        program = shapeOf(app, {{"HOW", DitherNames::list()}, {"TYPE[,TYPE...]", packetNames()}});
    });
    return writeCompletionFile(program, {}, argc, argv);
}
