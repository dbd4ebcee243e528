#include "panelctl/command/WatchCommand.h"

#include "panelctl/command/StatisticsReport.h"
#include "panelctl/session/Diagnosis.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Output.h"
#include "panelctl/terminal/Wording.h"

namespace Vantor {

void WatchCommand::run(Session& session, Output& output)
{
    choosePanel(session);
    try {
        watch(session, output);
    } catch (const Interrupted&) {
        summarise(session, output);
        throw;
    }
    summarise(session, output);
    if (m_options.count && m_counts.packets < *m_options.count)
        throw Failure(ExitCode::TimedOut, "only " + std::to_string(m_counts.packets) + " of " +
                                              std::to_string(*m_options.count) + " packets came within " +
                                              formatSeconds(*m_options.duration) + ".");
}

void WatchCommand::choosePanel(const Session& session)
{
    if (!m_options.panel)
        return;
    const std::optional<Panel> panel = session.choosePanelOrPlace(*m_options.panel);
    m_place = panel ? panel->getPlace() : *m_options.panel;
    if (panel)
        m_uids.insert(panel->getUid());
}

void WatchCommand::watch(Session& session, Output& output)
{
    m_start = Session::Clock::now();
    const auto end = m_options.duration
                         ? m_start + std::chrono::duration_cast<Session::Clock::duration>(*m_options.duration)
                         : Session::Clock::time_point::max();
    if (m_options.panel ? m_uids.empty() : session.getPanels().empty())
        output.warn({"waiting",
                     "no panel is attached" + (m_options.panel ? " at " + m_place : "") + " yet; waiting for one.",
                     ""});
    while (!m_options.count || m_counts.packets < *m_options.count) {
        const std::optional<PanelEvent> event = session.nextEvent(end);
        if (!event)
            return;
        take(*event, session, output);
    }
}

void WatchCommand::take(const PanelEvent& event, const Session& session, Output& output)
{
    if (event.kind == PanelEvent::Kind::Arrived) {
        takeArrival(event, session, output);
        return;
    }
    if (!isWanted(event))
        return;
    switch (event.kind) {
    case PanelEvent::Kind::Departed:
        if (m_present.erase(event.uid) == 0)
            return; // of what had not arrived
        ++m_counts.departures;
        break;
    case PanelEvent::Kind::Packet:
        ++m_counts.packets;
        break;
    case PanelEvent::Kind::Malformed:
        ++m_counts.malformed;
        break;
    case PanelEvent::Kind::Arrived:
        break;
    }
    print(event, output);
}

void WatchCommand::takeArrival(const PanelEvent& event, const Session& session, Output& output)
{
    // One that can't be used is explained, unless it has gone meanwhile.
    const std::optional<Panel> panel = event.place.empty() ? session.findPanel(event.uid) : std::nullopt;
    const std::string place = panel ? panel->getPlace() : event.place;
    if (place.empty())
        return;
    if (m_options.panel && place != m_place) {
        m_uids.erase(event.uid); // somebody else's now
        return;
    }
    m_uids.insert(event.uid);
    if (panel) {
        if (!panel->isAlive())
            output.warn({FailureKind::panelUnusable, session.explainNotAlive(*panel), panel->getUidText()});
        return;
    }
    m_present.insert(event.uid);
    ++m_counts.arrivals;
    print(event, output);
}

bool WatchCommand::isWanted(const PanelEvent& event) const
{
    const bool isOfType =
        event.kind != PanelEvent::Kind::Packet || m_options.types.empty() || m_options.types.count(event.type) != 0;
    return isOfType && (!m_options.panel || m_uids.count(event.uid) != 0);
}

void WatchCommand::print(const PanelEvent& event, Output& output)
{
    output.report(EventReport(event, event.time - m_start, m_options.shownBytes));
}

void WatchCommand::summarise(const Session& session, Output& output) const
{
    output.report(WatchSummary(m_counts));
    if (m_options.hasStatistics)
        reportStatistics(session, output, m_options.panel ? std::optional(m_place) : std::nullopt,
                         Session::Clock::now() - m_start);
}

} // namespace Vantor
