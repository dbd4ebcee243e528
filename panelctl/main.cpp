#include "panelctl/CommandLine.h"
#include "panelctl/command/Program.h"
#include "panelctl/terminal/Output.h"

int main(int argc, char** argv)
{
    using namespace Vantor;
    return runProgram([argc, argv](Output& output, const Interrupt& interrupt) {
        const CommandLine line = CommandLine::parse(argc, argv);
        if (line.command)
            runCommand(*line.command, line.logLevel, output, interrupt);
        else
            output.text(line.text);
    });
}
