#include "packaging/completion/CompletionFile.h"
#include "panelfleet/CommandLine.h"

int main(int argc, char** argv)
{
    Vantor::ProgramShape program;
    Vantor::CommandLine::show([&program](const CLI::App& app) { program = Vantor::shapeOf(app, {}); });
    return Vantor::writeCompletionFile(program, {}, argc, argv);
}
