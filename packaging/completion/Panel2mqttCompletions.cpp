#include "packaging/completion/CompletionFile.h"
#include "panel2mqtt/GatewayArguments.h"

int main(int argc, char** argv)
{
    Vantor::ProgramShape program;
    Vantor::showGatewayArguments([&program](const CLI::App& app) { program = Vantor::shapeOf(app, {}); });
    return Vantor::writeCompletionFile(program, {}, argc, argv);
}
