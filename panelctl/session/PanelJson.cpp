#include "panelctl/session/PanelJson.h"

#include "panelctl/session/Panel.h"
#include "panelctl/terminal/JsonObject.h"
#include "panelctl/terminal/Reason.h"
#include "panelctl/terminal/Wording.h"

namespace Vantor {

namespace {

const char* describeState(const Panel& panel)
{
    if (panel.getInformation())
        return "ready";
    return panel.isAlive() ? "silent" : "unusable";
}

} // namespace

void addName(JsonObject& object, const Panel& panel)
{
    object.add("uid", panel.getUidText()).add("place", panel.getPlace());
}

void addFailure(JsonObject& object, const Panel& panel)
{
    addReason(object, panel.getReason());
}

void addPanel(JsonObject& object, const Panel& panel)
{
    addName(object, panel);
    object.add("state", describeState(panel));
    addFailure(object, panel);
    const std::optional<DeviceInformation>& information = panel.getInformation();
    if (!information) {
        for (const char* const name :
             {"description", "descriptionBytes", "announcedLimit", "packetLimit", "payloadLimit", "lastByte"})
            object.add(name, nullptr);
        return;
    }
    object.add("description", panel.getDescriptionBytes())
        .add("descriptionBytes", formatHexBytes(information->description, sizeof information->description))
        .add("announcedLimit", static_cast<unsigned int>(information->maxPacketSize))
        .add("packetLimit", panel.getPacketLimit())
        .add("payloadLimit", panel.getPayloadLimit())
        .add("lastByte", static_cast<unsigned int>(information->reserved));
}

} // namespace Vantor
