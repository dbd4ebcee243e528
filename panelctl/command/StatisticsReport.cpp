#include "panelctl/command/StatisticsReport.h"

#include "panelctl/session/PanelJson.h"
#include "panelctl/session/Session.h"
#include "panelctl/terminal/Output.h"
#include "panelctl/terminal/Wording.h"

#include <cinttypes>

namespace Vantor {

namespace {

// A line of the table, and the members that it shows; the JSON has them by name.
struct Row {
    const char* label;
    const char* sentName;
    std::uint64_t SendStatistics::*sent;
    const char* receivedName;
    std::uint64_t ReceiveStatistics::*received;
};

using Sent = SendStatistics;
using Received = ReceiveStatistics;

constexpr Row rows[] = {
    {"packets", "packets", &Sent::packets, "packets", &Received::packets},
    {"bytes", "bytes", &Sent::bytes, "bytes", &Received::bytes},
    {"records", "records", &Sent::records, "records", &Received::records},
    {"transfers", nullptr, nullptr, "buffers", &Received::buffers},
    {"empty transfers", "emptySends", &Sent::emptySends, "emptyReads", &Received::emptyReads},
    {"malformed packets", nullptr, nullptr, "malformedPackets", &Received::malformedPackets},
    {"refused records", nullptr, nullptr, "refusedRecords", &Received::refusedRecords},
    {"not parsed", nullptr, nullptr, "unparsedBuffers", &Received::unparsedBuffers},
    {"packets cut short", "cutPackets", &Sent::cutPackets, nullptr, nullptr},
    {"records in those", "cutRecords", &Sent::cutRecords, nullptr, nullptr},
    {"superseded values", "supersededValues", &Sent::supersededValues, nullptr, nullptr},
    {"duplicates", "duplicates", &Sent::duplicates, nullptr, nullptr},
    {"pictures", "pictures", &Sent::pictures, nullptr, nullptr},
    {"slices of pictures", "slices", &Sent::slices, nullptr, nullptr},
    {"bytes of slices", "pictureBytes", &Sent::pictureBytes, nullptr, nullptr},
    {"covered pictures", "coveredPictures", &Sent::coveredPictures, nullptr, nullptr},
};

struct FailureRow {
    const char* label;
    const char* name;
    std::uint64_t TransferFailures::*count;
};

constexpr FailureRow failureRows[] = {
    {"timed out", "timedOut", &TransferFailures::timedOut},
    {"stalled", "stalled", &TransferFailures::stalled},
    {"overflowed", "overflowed", &TransferFailures::overflowed},
    {"failed", "failed", &TransferFailures::failed},
    {"cancelled", "cancelled", &TransferFailures::cancelled},
    {"panel gone", "gone", &TransferFailures::gone},
    {"not taken by libusb", "refused", &TransferFailures::refused},
    {"given up after 5 s", "watchdogs", &TransferFailures::watchdogs},
    {"late", "late", &TransferFailures::late},
    {"bytes of these", "lostBytes", &TransferFailures::lostBytes},
};

// One that is new has to be entered above.
constexpr std::size_t sizeOfCounts(std::size_t number)
{
    return number * sizeof(std::uint64_t);
}
static_assert(sizeof(TransferFailures) == sizeOfCounts(std::size(failureRows)));
static_assert(sizeof(SendStatistics) == sizeOfCounts(12) + sizeof(TransferFailures));
static_assert(sizeof(ReceiveStatistics) == sizeOfCounts(8) + sizeof(TransferFailures));
static_assert(sizeof(DeviceStatistics) == sizeof(SendStatistics) + sizeof(ReceiveStatistics) +
                                              sizeOfCounts(3 * 2 + 2 + DeviceStatistics::timePlaces));
static_assert(sizeof(ManagerStatistics) == sizeof(DeviceStatistics) + sizeOfCounts(6));

// Nothing where nothing is counted.
std::string formatCell(const std::optional<std::uint64_t>& count)
{
    return count ? std::to_string(*count) : "";
}

std::string formatRow(const char* label, const std::string& sent, const std::string& received)
{
    std::string line = formatText("  %-19s  %14s  %14s", label, sent.c_str(), received.c_str());
    line.resize(line.find_last_not_of(' ') + 1);
    return line + "\n";
}

bool isCounted(const std::optional<std::uint64_t>& count)
{
    return count.value_or(0) != 0;
}

std::string formatRows(const DeviceStatistics& statistics)
{
    std::string text;
    for (const Row& row : rows) {
        const auto sent = row.sent != nullptr ? std::optional(statistics.sent.*row.sent) : std::nullopt;
        const auto received = row.received != nullptr ? std::optional(statistics.received.*row.received) : std::nullopt;
        if (isCounted(sent) || isCounted(received))
            text += formatRow(row.label, formatCell(sent), formatCell(received));
    }
    for (const FailureRow& row : failureRows) {
        const std::uint64_t sent = statistics.sent.failures.*row.count;
        const std::uint64_t received = statistics.received.failures.*row.count;
        if (sent != 0 || received != 0)
            text += formatRow(row.label, std::to_string(sent), std::to_string(received));
    }
    return text.empty() ? "  nothing yet\n" : formatRow("", "to the panel", "from it") + text;
}

std::string formatWaiting(const char* label, const WaitingStatistics& waiting)
{
    return waiting.most == 0
               ? ""
               : formatText("  %-19s  %14" PRIu64 " now, %" PRIu64 " at most\n", label, waiting.now, waiting.most);
}

// "up to 64 us"; of the last place nobody knows.
std::string describePlace(std::size_t place)
{
    if (place + 1 == DeviceStatistics::timePlaces)
        return "longer";
    const std::uint64_t microseconds = std::uint64_t{1} << place;
    if (microseconds < 10000)
        return "up to " + std::to_string(microseconds) + " us";
    if (microseconds < 10000000)
        return "up to " + std::to_string(microseconds / 1000) + " ms";
    return "up to " + std::to_string(microseconds / 1000000) + " s";
}

std::string formatTimes(const DeviceStatistics& statistics)
{
    std::string text;
    for (std::size_t place = 0; place < statistics.timesToTaken.size(); ++place)
        if (statistics.timesToTaken[place] != 0)
            text +=
                formatText("  %-19s  %14" PRIu64 "\n", describePlace(place).c_str(), statistics.timesToTaken[place]);
    return text.empty() ? "" : "  records, from adding until taken\n" + text;
}

std::string formatStatistics(const DeviceStatistics& statistics)
{
    std::string text = formatRows(statistics);
    text += formatWaiting("high priority waits", statistics.highPriorityRecords);
    text += formatWaiting("normal waits", statistics.normalRecords);
    text += formatWaiting("pictures wait", statistics.pictures);
    if (statistics.upgradeResends != 0 || statistics.upgradeDuplicates != 0)
        text += formatText("  %-19s  %14" PRIu64 " sent again, %" PRIu64 " answered twice\n", "chunks of firmware",
                           statistics.upgradeResends, statistics.upgradeDuplicates);
    return text + formatTimes(statistics);
}

JsonObject makeFailures(const TransferFailures& failures)
{
    JsonObject object;
    for (const FailureRow& row : failureRows)
        object.add(row.name, failures.*row.count);
    return object;
}

JsonObject makeWaiting(const WaitingStatistics& waiting)
{
    JsonObject object;
    object.add("now", waiting.now).add("most", waiting.most);
    return object;
}

void addStatistics(JsonObject& object, const DeviceStatistics& statistics)
{
    JsonObject sent;
    JsonObject received;
    for (const Row& row : rows) {
        if (row.sent != nullptr)
            sent.add(row.sentName, statistics.sent.*row.sent);
        if (row.received != nullptr)
            received.add(row.receivedName, statistics.received.*row.received);
    }
    sent.add("failures", makeFailures(statistics.sent.failures));
    received.add("failures", makeFailures(statistics.received.failures));
    object.add("sent", sent)
        .add("received", received)
        .add("highPriorityRecords", makeWaiting(statistics.highPriorityRecords))
        .add("normalRecords", makeWaiting(statistics.normalRecords))
        .add("pictures", makeWaiting(statistics.pictures))
        .add("upgradeResends", statistics.upgradeResends)
        .add("upgradeDuplicates", statistics.upgradeDuplicates)
        .add("timesToTaken",
             std::vector<std::uint64_t>(statistics.timesToTaken.begin(), statistics.timesToTaken.end()));
}

std::string formatTime(std::chrono::nanoseconds time)
{
    return formatText("%.3f s", std::chrono::duration<double>(time).count());
}

std::string formatHead(const std::string& name, std::chrono::nanoseconds time)
{
    return name + ", after " + formatTime(time);
}

} // namespace

std::string PanelStatisticsReport::asText() const
{
    const std::optional<Reason> reason = m_panel.getReason();
    return formatHead(m_panel.getName() + (reason ? ", dead of " + reason->text : ""), m_time) + ", attached for " +
           formatTime(m_sinceArrival) + "\n" + formatStatistics(m_statistics);
}

JsonObject PanelStatisticsReport::asJson() const
{
    JsonObject object("statistics");
    object.add("time", toSeconds(m_time));
    addName(object, m_panel);
    addFailure(object, m_panel);
    object.add("sinceArrival", toSeconds(m_sinceArrival));
    addStatistics(object, m_statistics);
    return object;
}

std::string AbsenceReport::asText() const
{
    return formatHead("no panel is attached at " + m_place, m_time) + "\n";
}

JsonObject AbsenceReport::asJson() const
{
    JsonObject object("absent");
    object.add("time", toSeconds(m_time)).add("place", m_place);
    return object;
}

std::string TotalStatisticsReport::asText() const
{
    const ManagerStatistics& all = m_statistics;
    return formatHead("all panels", m_time) + "\n" + formatStatistics(all.devices) +
           formatText("  arrivals %" PRIu64 ", departures %" PRIu64 ", found dead %" PRIu64 ", found stray %" PRIu64
                      ", transfers not yet parsed %" PRIu64 "\n",
                      all.arrivals, all.departures, all.dead, all.stray, all.waitingBuffers);
}

JsonObject TotalStatisticsReport::asJson() const
{
    JsonObject object("totals");
    object.add("time", toSeconds(m_time));
    addStatistics(object, m_statistics.devices);
    object.add("arrivals", m_statistics.arrivals)
        .add("departures", m_statistics.departures)
        .add("dead", m_statistics.dead)
        .add("stray", m_statistics.stray)
        .add("waitingBuffers", m_statistics.waitingBuffers)
        .add("passes", m_statistics.passes); // for programs: people have nothing from it
    return object;
}

void reportStatistics(const Session& session, Output& output, const std::optional<std::string>& place,
                      std::chrono::nanoseconds time)
{
    bool isAnyThere = false;
    for (const Panel& panel : session.getPanels()) {
        if (place && panel.getPlace() != *place)
            continue;
        isAnyThere = true;
        const auto sinceArrival = Session::Clock::now() - session.getArrival(panel);
        output.report(PanelStatisticsReport(panel, panel.getDevice().getStatistics(), time, sinceArrival));
    }
    if (!place)
        output.report(TotalStatisticsReport(session.getStatistics(), time));
    else if (!isAnyThere)
        output.report(AbsenceReport(*place, time));
}

} // namespace Vantor
