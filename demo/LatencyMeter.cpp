#include "demo/LatencyMeter.h"

#include "demo/DemoRecords.h"
#include "panelctl/command/Delivery.h"
#include "panelctl/session/Diagnosis.h"
#include "panelctl/terminal/Failure.h"

#include <algorithm>

namespace Vantor {

namespace {

constexpr std::chrono::seconds limit{10}; // for one record
constexpr std::chrono::microseconds readStep{50};

double sendOne(Session& session, const Panel& panel, const std::vector<std::uint8_t>& payload)
{
    Delivery delivery(panel);
    const auto start = Session::Clock::now();
    delivery.add(DemoRecords::queuedTypes[0], std::nullopt, payload);
    const bool taken =
        session.waitUntil(start + limit, readStep, [&] { return delivery.isTaken() || !panel.isAlive(); });
    const auto end = Session::Clock::now();
    if (!panel.isAlive())
        throw Failure(ExitCode::PanelLeft, explainLeft(panel) + "\nThe demo needs it up to step 5.");
    if (!taken)
        throw Failure(ExitCode::TimedOut, explainNotTaken(panel, "record", 0, delivery.getLeastTotal(), limit));
    return std::chrono::duration<double, std::milli>(end - start).count();
}

} // namespace

LatencyMeter::LatencyMeter(std::size_t records, std::size_t payload) : m_records(records), m_payload(payload) {}

void LatencyMeter::measure(Session& session, const Panel& panel)
{
    const std::vector<std::uint8_t> payload(m_payload);
    m_times.clear();
    while (m_times.size() < m_records)
        m_times.push_back(sendOne(session, panel, payload));
    std::sort(m_times.begin(), m_times.end());
}

double LatencyMeter::getPercentile(double share) const
{
    const auto index = static_cast<std::size_t>(share * static_cast<double>(m_times.size()));
    return m_times.at(std::min(index, m_times.size() - 1));
}

} // namespace Vantor
