#include "panelctl/command/StatsCommand.h"

#include "panelctl/command/StatisticsReport.h"
#include "panelctl/session/Diagnosis.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Output.h"

#include <algorithm>

namespace Vantor {

void StatsCommand::run(Session& session, Output& output)
{
    m_start = Session::Clock::now();
    const bool isAtOnce = !m_options.every && !m_options.duration;
    if (m_options.panel)
        m_place = session.choosePanel(m_options.panel).getPlace();
    else if (isAtOnce && session.getPanels().empty())
        throw Failure(ExitCode::NoPanel, explainNoPanel());
    try {
        if (isAtOnce)
            awaitTraffic(session);
        else
            listen(session, output);
    } catch (const Interrupted&) {
        report(session, output);
        throw;
    }
    report(session, output);
    if (isAtOnce)
        complain(session, output);
}

// As `list`: each has been asked what it says of itself.
void StatsCommand::complain(const Session& session, Output& output) const
{
    std::vector<Panel> panels = session.getPanels();
    if (m_place)
        panels.erase(std::remove_if(panels.begin(), panels.end(),
                                    [this](const Panel& panel) { return panel.getPlace() != *m_place; }),
                     panels.end());
    session.complainOf(panels, m_options.timeout, output);
}

// At least what each panel says of itself. The library counts a buffer when all of it is parsed.
void StatsCommand::awaitTraffic(Session& session) const
{
    session.awaitInformation(m_options.timeout);
    session.waitUntil(m_start + std::chrono::duration_cast<Session::Clock::duration>(m_options.timeout),
                      std::chrono::milliseconds(1), [&session] {
                          const std::vector<Panel> panels = session.getPanels();
                          return std::all_of(panels.begin(), panels.end(), [](const Panel& panel) {
                              return !panel.getInformation() || panel.getDevice().getStatistics().received.records != 0;
                          });
                      });
}

// Up to the last report.
void StatsCommand::listen(Session& session, Output& output)
{
    using Time = Session::Clock::time_point;
    const auto after = [](Time time, std::chrono::nanoseconds step) {
        return time + std::chrono::duration_cast<Session::Clock::duration>(step);
    };
    const auto awaitTime = [&session](Time time) {
        session.waitUntil(time, std::chrono::hours(1), [] { return false; });
    };
    const Time end = m_options.duration ? after(m_start, *m_options.duration) : Time::max();
    if (m_options.every)
        for (Time next = after(m_start, *m_options.every); next < end; next = after(next, *m_options.every)) {
            awaitTime(next);
            report(session, output);
        }
    awaitTime(end);
}

void StatsCommand::report(const Session& session, Output& output) const
{
    reportStatistics(session, output, m_place, Session::Clock::now() - m_start);
}

} // namespace Vantor
