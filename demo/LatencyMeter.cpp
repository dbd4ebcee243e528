#include "demo/LatencyMeter.h"

#include "demo/DemoRecords.h"
#include "panelctl/command/Delivery.h"

#include <algorithm>

namespace Vantor {

namespace {

constexpr std::chrono::seconds limit{10}; // for one record

double sendOne(Session& session, const Panel& panel, const std::vector<std::uint8_t>& payload)
{
    Delivery delivery(panel);
    const auto start = Session::Clock::now();
    delivery.add(DemoRecords::queuedTypes[0], std::nullopt, payload);
    delivery.await(session, limit, "\nThe demo needs it up to step 5.");
    return std::chrono::duration<double, std::milli>(Session::Clock::now() - start).count();
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
