#pragma once

#include "libMorvaneHostUsb/ManagerStatistics.h"
#include "panelctl/session/Panel.h"
#include "panelctl/terminal/Report.h"

#include <chrono>
#include <optional>
#include <string>

namespace Vantor {

class Output;
class Session;

// What the library has counted of one panel. Its text leaves out what is 0 on either side.
class PanelStatisticsReport final : public Report {
public:
    // `time` since the command began, `sinceArrival` since the counts did.
    PanelStatisticsReport(const Panel& panel, const DeviceStatistics& statistics, std::chrono::nanoseconds time,
                          std::chrono::nanoseconds sinceArrival)
        : m_panel(panel), m_statistics(statistics), m_time(time), m_sinceArrival(sinceArrival)
    {}

    std::string asText() const override;
    JsonObject asJson() const override;

private:
    const Panel& m_panel;
    const DeviceStatistics m_statistics;
    const std::chrono::nanoseconds m_time;
    const std::chrono::nanoseconds m_sinceArrival;
};

// In place of the counts of a panel that was asked for and is not there.
class AbsenceReport final : public Report {
public:
    AbsenceReport(const std::string& place, std::chrono::nanoseconds time) : m_place(place), m_time(time) {}

    std::string asText() const override;
    JsonObject asJson() const override;

private:
    const std::string& m_place;
    const std::chrono::nanoseconds m_time;
};

// And of all of them, those that have left included.
class TotalStatisticsReport final : public Report {
public:
    TotalStatisticsReport(const ManagerStatistics& statistics, std::chrono::nanoseconds time)
        : m_statistics(statistics), m_time(time)
    {}

    std::string asText() const override;
    JsonObject asJson() const override;

private:
    const ManagerStatistics m_statistics;
    const std::chrono::nanoseconds m_time;
};

// Of all panels attached now, then the totals; or of the one at `place` alone. `time` since
// the command began.
void reportStatistics(const Session& session, Output& output, const std::optional<std::string>& place,
                      std::chrono::nanoseconds time);

} // namespace Vantor
