#include "panelctl/command/ListCommand.h"

#include "panelctl/session/Diagnosis.h"
#include "panelctl/session/Session.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Output.h"

#include <string>

namespace Vantor {

namespace {

void printRow(Output& output, const Panel& panel)
{
    std::string limit = "-";
    std::string description = panel.isAlive() ? "(no device information)" : "(can't be used)";
    if (panel.getInformation()) {
        limit = std::to_string(panel.getPacketLimit());
        description = panel.getDescription();
    }
    output.line("%-4s  %-8s  %6s  %s", panel.getUidText().c_str(), panel.getPlace().c_str(), limit.c_str(),
                description.c_str());
}

} // namespace

void ListCommand::run(Session& session, Output& output)
{
    session.awaitInformation(m_timeout);
    const std::vector<Panel> panels = session.getPanels();
    if (panels.empty())
        throw Failure(ExitCode::NoPanel, explainNoPanel());

    output.line("%-4s  %-8s  %6s  %s", "UID", "BUS-PORT", "LIMIT", "DESCRIPTION");
    for (const Panel& panel : panels)
        printRow(output, panel);

    std::string unusable;
    for (const Panel& panel : panels) {
        if (!panel.isAlive())
            unusable += (unusable.empty() ? "" : "\n") + session.explainNotAlive(panel);
        else if (!panel.getInformation())
            printError(explainNoInformation(panel, m_timeout));
    }
    if (!unusable.empty())
        throw Failure(ExitCode::Failed, unusable);
}

} // namespace Vantor
