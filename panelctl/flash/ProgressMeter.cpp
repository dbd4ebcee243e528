#include "panelctl/flash/ProgressMeter.h"

#include <algorithm>
#include <cmath>

namespace Vantor {

void ProgressMeter::note(Time now, std::uint32_t done)
{
    if (m_total != 0 && getDone() == m_total)
        return; // what is waited for now is no part of the rate
    m_samples.emplace_back(now, std::min(done, m_total));
    // What lies before the first byte is no part of the rate.
    while (m_samples.size() > 1 && (m_samples[1].second == 0 || now - m_samples[1].first >= window))
        m_samples.pop_front();
}

unsigned int ProgressMeter::getPercentage() const
{
    return m_total == 0 ? 100 : static_cast<unsigned int>(std::uint64_t{getDone()} * 100 / m_total);
}

double ProgressMeter::getRate() const
{
    if (m_samples.size() < 2)
        return 0;
    const double seconds = std::chrono::duration<double>(m_samples.back().first - m_samples.front().first).count();
    return seconds > 0 ? (m_samples.back().second - m_samples.front().second) / seconds : 0;
}

std::optional<std::chrono::seconds> ProgressMeter::getRemaining(std::chrono::milliseconds pauses) const
{
    const double rate = getRate();
    if (rate <= 0)
        return std::nullopt;
    const double seconds = (m_total - getDone()) / rate + std::chrono::duration<double>(pauses).count();
    return std::chrono::seconds(static_cast<std::int64_t>(std::ceil(seconds)));
}

} // namespace Vantor
