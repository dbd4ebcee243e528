#include "packaging/completion/CompletionFile.h"
#include "simulator/panelsim/PanelsimOptions.h"

int main(int argc, char** argv)
{
    Vantor::ProgramShape program;
    Vantor::showPanelsimArguments([&program](const CLI::App& app) { program = Vantor::shapeOf(app, {}); });
    return Vantor::writeCompletionFile(program, Vantor::listOrderPlaces(), argc, argv);
}
