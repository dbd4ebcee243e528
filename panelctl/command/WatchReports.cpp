#include "panelctl/command/WatchReports.h"

#include "panelctl/command/HexText.h"
#include "panelctl/session/PacketNames.h"
#include "panelctl/terminal/Reason.h"
#include "panelctl/terminal/Wording.h"

#include <algorithm>

namespace Vantor {

std::string EventReport::asText() const
{
    return formatText("%9.3f  %s  %s\n", std::chrono::duration<double>(m_time).count(), formatUid(m_event.uid).c_str(),
                      describe().c_str());
}

std::string EventReport::describe() const
{
    const std::size_t size = m_event.payload.size();
    switch (m_event.kind) {
    case PanelEvent::Kind::Arrived:
        return "arrived  at " + m_event.place;
    case PanelEvent::Kind::Departed:
        return "left";
    case PanelEvent::Kind::Packet:
        return formatText("packet   type %-2d  %5zu %-5s  %s", static_cast<int>(m_event.type), size,
                          size == 1 ? "byte" : "bytes", HexText::format(m_event.payload, m_shownBytes).c_str());
    case PanelEvent::Kind::Malformed:
        break;
    }
    return formatText("malformed at byte %zu of %zu: %s:  %s", m_event.malformation->offset,
                      m_event.malformation->offset + size, m_event.malformation->text.c_str(),
                      HexText::format(m_event.payload, m_shownBytes).c_str());
}

JsonObject EventReport::asJson() const
{
    const auto begin = [this](const char* event) {
        JsonObject object(event);
        object.add("time", toSeconds(m_time)).add("uid", formatUid(m_event.uid));
        return object;
    };
    switch (m_event.kind) {
    case PanelEvent::Kind::Arrived: {
        JsonObject object = begin("arrived");
        object.add("place", m_event.place);
        return object;
    }
    case PanelEvent::Kind::Departed: {
        JsonObject object = begin("left");
        addReason(object, m_event.reason);
        return object;
    }
    case PanelEvent::Kind::Packet: {
        JsonObject object = begin("packet");
        object.add("type", static_cast<int>(m_event.type))
            .add("name", PacketNames::find(m_event.type))
            .add("length", m_event.payload.size());
        addBytes(object, "payload");
        return object;
    }
    case PanelEvent::Kind::Malformed:
        break;
    }
    JsonObject object = begin("malformed");
    object.add("kind", m_event.malformation->kind)
        .add("text", m_event.malformation->text)
        .add("offset", m_event.malformation->offset)
        .add("length", m_event.payload.size());
    addBytes(object, "bytes");
    return object;
}

void EventReport::addBytes(JsonObject& object, const char* name) const
{
    object.add(name, formatHexBytes(m_event.payload.data(), std::min(m_event.payload.size(), m_shownBytes)));
}

std::string WatchSummary::asText() const
{
    std::string text = formatNumber(m_counts.packets, "packet") + ", " + formatNumber(m_counts.arrivals, "arrival") +
                       ", " + formatNumber(m_counts.departures, "departure");
    if (m_counts.malformed != 0)
        text += ", " + std::to_string(m_counts.malformed) + " malformed";
    return text + "\n";
}

JsonObject WatchSummary::asJson() const
{
    JsonObject object("summary");
    object.add("packets", m_counts.packets)
        .add("malformed", m_counts.malformed)
        .add("arrivals", m_counts.arrivals)
        .add("departures", m_counts.departures);
    return object;
}

} // namespace Vantor
