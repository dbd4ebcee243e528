#include "demo/DemoCommand.h"
#include "panelctl/command/Program.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Output.h"
#include "panelctl/terminal/Wording.h"

#include <string>
#include <vector>

namespace {

using namespace Vantor;

constexpr char help[] = "Drives simulated panels and reports; ./run-demo runs it.\n"
                        "Usage: morvane-demo [--any-panel] [--log-level N]\n\n"
                        "  --any-panel      Also send the demo's made-up records to real panels\n"
                        "  --log-level N    The library's log on standard error, 0 to 5\n";

// By hand: two options are not worth half a minute of a compiler.
void run(const std::vector<std::string>& arguments, Output& output, const Interrupt& interrupt)
{
    bool anyPanel = false;
    int logLevel = 2;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--help" || argument == "-h") {
            output.text(help);
            return;
        }
        const std::string value = i + 1 < arguments.size() ? arguments[i + 1] : "";
        if (argument == "--any-panel") {
            anyPanel = true;
        } else if (argument == "--log-level" && value >= "0" && value <= "5" && value.size() == 1) {
            logLevel = value[0] - '0';
            ++i;
        } else {
            throw Failure(ExitCode::Usage, makePrintable(argument) + ": not understood here\n" + help);
        }
    }
    DemoCommand demo(anyPanel);
    runCommand(demo, logLevel, output, interrupt);
}

} // namespace

int main(int argc, char** argv)
{
    return runProgram([&](Output& output, const Interrupt& interrupt) {
        run({argv + 1, argv + argc}, output, interrupt);
    });
}
