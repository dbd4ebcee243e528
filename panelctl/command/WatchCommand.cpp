#include "panelctl/command/WatchCommand.h"

#include "panelctl/command/HexText.h"
#include "panelctl/session/Diagnosis.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Output.h"
#include "panelctl/terminal/Wording.h"

namespace Vantor {

void WatchCommand::run(Session& session, Output& output)
{
    try {
        watch(session, output);
    } catch (const Interrupted&) {
        summarise(output);
        throw;
    }
    summarise(output);
    if (m_options.count && m_packets < *m_options.count)
        throw Failure(ExitCode::TimedOut, "only " + std::to_string(m_packets) + " of " +
                                              std::to_string(*m_options.count) + " packets came within " +
                                              formatSeconds(*m_options.duration) + ".");
}

void WatchCommand::watch(Session& session, Output& output)
{
    m_start = Session::Clock::now();
    const auto end = m_options.duration
                         ? m_start + std::chrono::duration_cast<Session::Clock::duration>(*m_options.duration)
                         : Session::Clock::time_point::max();
    if (session.getPanels().empty())
        printError("no panel is attached yet; waiting for one.");
    while (!m_options.count || m_packets < *m_options.count) {
        const std::optional<PanelEvent> event = session.nextEvent(end);
        if (!event)
            return;
        print(*event, session, output);
    }
}

void WatchCommand::print(const PanelEvent& event, const Session& session, Output& output)
{
    const double seconds = std::chrono::duration<double>(event.time - m_start).count();
    const std::string uid = formatUid(event.uid);
    switch (event.kind) {
    case PanelEvent::Kind::Arrived:
        if (event.place.empty()) {
            explainUnusable(event.uid, session);
            break;
        }
        m_present.insert(event.uid);
        ++m_arrivals;
        output.line("%9.3f  %s  arrived  at %s", seconds, uid.c_str(), event.place.c_str());
        break;
    case PanelEvent::Kind::Departed:
        if (m_present.erase(event.uid) == 0)
            break; // of what had not arrived
        ++m_departures;
        output.line("%9.3f  %s  left", seconds, uid.c_str());
        break;
    case PanelEvent::Kind::Packet:
        ++m_packets;
        output.line("%9.3f  %s  packet   type %-2d  %5zu %-5s  %s", seconds, uid.c_str(), static_cast<int>(event.type),
                    event.payload.size(), event.payload.size() == 1 ? "byte" : "bytes",
                    HexText::format(event.payload, m_options.shownBytes).c_str());
        break;
    }
}

// Unless it has gone meanwhile.
void WatchCommand::explainUnusable(std::uint16_t uid, const Session& session)
{
    const std::optional<Panel> panel = session.findPanel(uid);
    if (panel && !panel->isAlive())
        printError(session.explainNotAlive(*panel));
}

void WatchCommand::summarise(Output& output) const
{
    output.line("%s, %s, %s", formatNumber(m_packets, "packet").c_str(), formatNumber(m_arrivals, "arrival").c_str(),
                formatNumber(m_departures, "departure").c_str());
}

} // namespace Vantor
