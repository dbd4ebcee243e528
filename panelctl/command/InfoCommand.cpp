#include "panelctl/command/InfoCommand.h"

#include "panelctl/session/PanelJson.h"
#include "panelctl/session/Session.h"
#include "panelctl/terminal/Output.h"
#include "panelctl/terminal/Report.h"
#include "panelctl/terminal/Wording.h"
#include "wire/PanelLink.h"

namespace Vantor {

namespace {

std::string describeLimit(const Panel& panel)
{
    std::string text = std::to_string(panel.getPacketLimit()) + " bytes, which leaves " +
                       std::to_string(panel.getPayloadLimit()) + " for a record's payload";
    const unsigned int announced = panel.getInformation()->maxPacketSize;
    if (announced != panel.getPacketLimit())
        text += "\n              (it announces " + std::to_string(announced) + "; only more than " +
                std::to_string(PanelLink::packetLimitFloor) + " is taken over)";
    return text;
}

class InfoReport final : public Report {
public:
    explicit InfoReport(const Panel& panel) : m_panel(panel) {}

    std::string asText() const override
    {
        return "uid           " + m_panel.getUidText() + "\nbus-port      " + m_panel.getPlace() + "\ndescription   " +
               m_panel.getDescription() + "\npacket limit  " + describeLimit(m_panel) + "\nlast byte     0x" +
               formatHex(m_panel.getInformation()->reserved, 2) + ", meaning fixed by its firmware\ntraffic       " +
               std::to_string(m_panel.getSentBytes()) + " bytes to it and " +
               std::to_string(m_panel.getReceivedBytes()) + " from it since panelctl was started\n";
    }

    JsonObject asJson() const override
    {
        JsonObject object("panel");
        addPanel(object, m_panel);
        object.add("sentBytes", m_panel.getSentBytes()).add("receivedBytes", m_panel.getReceivedBytes());
        return object;
    }

private:
    const Panel& m_panel;
};

} // namespace

void InfoCommand::run(Session& session, Output& output)
{
    const Panel panel = session.awaitInformation(session.choosePanel(m_panel), m_timeout);
    output.report(InfoReport(panel));
}

} // namespace Vantor
