#include "demo/DemoCommand.h"
#include "panelctl/command/Program.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Output.h"
#include "panelctl/terminal/Wording.h"

#include <string>

#include <CLI/CLI.hpp>

namespace {

using namespace Vantor;

void run(int argc, char** argv, Output& output, const Interrupt& interrupt)
{
    bool anyPanel = false;
    int logLevel = 2;
    CLI::App app("Drives simulated panels and reports; ./run-demo runs it.", "morvane-demo");
    app.add_flag("--any-panel", anyPanel, "Also send the demo's made-up records to real panels");
    app.add_option("--log-level", logLevel, "The library's log on standard error, 0 to 5")->check(CLI::Range(0, 5));
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        output.text(app.help());
        return;
    } catch (const CLI::ParseError& error) {
        throw Failure(ExitCode::Usage, makePrintable(error.what()) + "\n`morvane-demo --help` shows what there is.");
    }
    DemoCommand demo(anyPanel);
    runCommand(demo, logLevel, output, interrupt);
}

} // namespace

int main(int argc, char** argv)
{
    return runProgram([argc, argv](Output& output, const Interrupt& interrupt) { run(argc, argv, output, interrupt); });
}
