#include "panelctl/command/InfoCommand.h"

#include "panelctl/session/Session.h"
#include "panelctl/terminal/Output.h"
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

} // namespace

void InfoCommand::run(Session& session, Output& output)
{
    const Panel panel = session.awaitInformation(session.choosePanel(m_panel), m_timeout);
    output.line("uid           %s", panel.getUidText().c_str());
    output.line("bus-port      %s", panel.getPlace().c_str());
    output.line("description   %s", panel.getDescription().c_str());
    output.line("packet limit  %s", describeLimit(panel).c_str());
    output.line("last byte     0x%02x, meaning fixed by its firmware", panel.getInformation()->reserved);
    output.line("traffic       %u bytes to it and %u from it since panelctl was started", panel.getSentBytes(),
                panel.getReceivedBytes());
}

} // namespace Vantor
