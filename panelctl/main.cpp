#include "panelctl/CommandLine.h"
#include "panelctl/command/Program.h"
#include "panelctl/terminal/Output.h"
#include "panelctl/terminal/Report.h"

#include <string>

namespace {

using namespace Vantor;

class HelpReport final : public Report {
public:
    explicit HelpReport(const std::string& text) : m_text(text) {}

    std::string asText() const override { return m_text; }

    JsonObject asJson() const override
    {
        JsonObject object("help");
        object.add("text", m_text);
        return object;
    }

private:
    const std::string& m_text;
};

} // namespace

int main(int argc, char** argv)
{
    const auto body = [argc, argv](Output& output, const Interrupt& interrupt) {
        const CommandLine line = CommandLine::parse(argc, argv);
        if (line.command)
            runCommand(*line.command, line.logLevel, output, interrupt);
        else
            output.report(HelpReport(line.text));
    };
    return runProgram(body, CommandLine::formOf(argc, argv));
}
