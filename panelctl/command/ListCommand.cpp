#include "panelctl/command/ListCommand.h"

#include "panelctl/session/Diagnosis.h"
#include "panelctl/session/PanelJson.h"
#include "panelctl/session/Session.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Output.h"
#include "panelctl/terminal/Report.h"
#include "panelctl/terminal/Wording.h"

#include <string>

namespace Vantor {

namespace {

class PanelReport final : public Report {
public:
    explicit PanelReport(const Panel& panel) : m_panel(panel) {}

    std::string asText() const override
    {
        std::string limit = "-";
        std::string description = m_panel.isAlive() ? "(no device information)" : "(can't be used)";
        if (m_panel.getInformation()) {
            limit = std::to_string(m_panel.getPacketLimit());
            description = m_panel.getDescription();
        }
        return formatText("%-4s  %-8s  %6s  %s\n", m_panel.getUidText().c_str(), m_panel.getPlace().c_str(),
                          limit.c_str(), description.c_str());
    }

    JsonObject asJson() const override
    {
        JsonObject object("panel");
        addPanel(object, m_panel);
        return object;
    }

private:
    const Panel& m_panel;
};

} // namespace

void ListCommand::run(Session& session, Output& output)
{
    session.awaitInformation(m_timeout);
    const std::vector<Panel> panels = session.getPanels();
    if (panels.empty())
        throw Failure(ExitCode::NoPanel, explainNoPanel());

    output.line("%-4s  %-8s  %6s  %s", "UID", "BUS-PORT", "LIMIT", "DESCRIPTION");
    for (const Panel& panel : panels)
        output.report(PanelReport(panel));
    session.complainOf(panels, m_timeout, output);
}

} // namespace Vantor
