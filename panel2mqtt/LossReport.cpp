#include "panel2mqtt/LossReport.h"

#include <algorithm>

namespace Vantor {

std::optional<std::string> LossReport::look(const Losses& sums, Clock::time_point now)
{
    if (now < m_due)
        return std::nullopt;
    std::optional<std::string> line = finish(sums);
    if (line) {
        m_due = now + m_pause;
        m_pause = std::min<Clock::duration>(2 * m_pause, longestPause);
    } else {
        m_pause = shortestPause;
    }
    return line;
}

std::optional<std::string> LossReport::finish(const Losses& sums)
{
    std::string line;
    const auto add = [&line](std::uint64_t sum, std::uint64_t& told, const char* what) {
        if (sum != told)
            line += (line.empty() ? "lost: " : ", ") + std::to_string(sum - told) + what;
        told = sum;
    };
    add(sums.events, m_told.events, " got or stats that the broker was not told");
    add(sums.answers, m_told.answers, " answers");
    add(sums.records, m_told.records, " records of panels that came too fast");
    add(sums.commands, m_told.commands, " commands, answered busy");
    if (line.empty())
        return std::nullopt;
    return line;
}

} // namespace Vantor
