#include "panelctl/command/StatisticsReport.h"

#include "tests/support/JsonLines.h"

#include <gtest/gtest.h>

namespace Vantor {

namespace {

using Json = nlohmann::json;

TransferFailures failuresFrom(std::uint64_t first)
{
    TransferFailures failures;
    failures.timedOut = first;
    failures.stalled = first + 1;
    failures.overflowed = first + 2;
    failures.failed = first + 3;
    failures.cancelled = first + 4;
    failures.gone = first + 5;
    failures.refused = first + 6;
    failures.watchdogs = first + 7;
    failures.late = first + 8;
    failures.lostBytes = first + 9;
    return failures;
}

Json expectedFailuresFrom(int first)
{
    return {{"timedOut", first},      {"stalled", first + 1},  {"overflowed", first + 2}, {"failed", first + 3},
            {"cancelled", first + 4}, {"gone", first + 5},     {"refused", first + 6},    {"watchdogs", first + 7},
            {"late", first + 8},      {"lostBytes", first + 9}};
}

// Another number in each member.
ManagerStatistics everyCount()
{
    ManagerStatistics all;
    SendStatistics& sent = all.devices.sent;
    sent.packets = 1;
    sent.bytes = 2;
    sent.records = 3;
    sent.cutPackets = 4;
    sent.cutRecords = 5;
    sent.emptySends = 6;
    sent.supersededValues = 7;
    sent.duplicates = 8;
    sent.slices = 9;
    sent.pictureBytes = 10;
    sent.pictures = 11;
    sent.coveredPictures = 12;
    sent.failures = failuresFrom(100);
    ReceiveStatistics& received = all.devices.received;
    received.buffers = 21;
    received.bytes = 22;
    received.emptyReads = 23;
    received.packets = 24;
    received.records = 25;
    received.malformedPackets = 26;
    received.refusedRecords = 27;
    received.unparsedBuffers = 28;
    received.failures = failuresFrom(200);
    all.devices.highPriorityRecords = {31, 32};
    all.devices.normalRecords = {33, 34};
    all.devices.pictures = {35, 36};
    all.devices.upgradeResends = 37;
    all.devices.upgradeDuplicates = 38;
    all.devices.timesToTaken[0] = 39;
    all.devices.timesToTaken[10] = 40;
    all.devices.timesToTaken[14] = 41;
    all.devices.timesToTaken[24] = 42;
    all.devices.timesToTaken[35] = 43;
    all.arrivals = 51;
    all.departures = 52;
    all.dead = 53;
    all.stray = 54;
    all.waitingBuffers = 55;
    all.passes = 56;
    return all;
}

} // namespace

TEST(StatisticsReport, json_hasEveryCount)
{
    const std::vector<Json> objects =
        parseJsonLines(TotalStatisticsReport(everyCount(), std::chrono::milliseconds(1250)).asJson().format() + "\n");
    Json times = Json::array();
    for (int i = 0; i < 36; ++i)
        times.push_back(i == 0 ? 39 : i == 10 ? 40 : i == 14 ? 41 : i == 24 ? 42 : i == 35 ? 43 : 0);
    EXPECT_EQ(objects.at(0), (Json{{"event", "totals"},
                                   {"time", 1.25},
                                   {"sent",
                                    {{"packets", 1},
                                     {"bytes", 2},
                                     {"records", 3},
                                     {"cutPackets", 4},
                                     {"cutRecords", 5},
                                     {"emptySends", 6},
                                     {"supersededValues", 7},
                                     {"duplicates", 8},
                                     {"slices", 9},
                                     {"pictureBytes", 10},
                                     {"pictures", 11},
                                     {"coveredPictures", 12},
                                     {"failures", expectedFailuresFrom(100)}}},
                                   {"received",
                                    {{"buffers", 21},
                                     {"bytes", 22},
                                     {"emptyReads", 23},
                                     {"packets", 24},
                                     {"records", 25},
                                     {"malformedPackets", 26},
                                     {"refusedRecords", 27},
                                     {"unparsedBuffers", 28},
                                     {"failures", expectedFailuresFrom(200)}}},
                                   {"highPriorityRecords", {{"now", 31}, {"most", 32}}},
                                   {"normalRecords", {{"now", 33}, {"most", 34}}},
                                   {"pictures", {{"now", 35}, {"most", 36}}},
                                   {"upgradeResends", 37},
                                   {"upgradeDuplicates", 38},
                                   {"timesToTaken", times},
                                   {"arrivals", 51},
                                   {"departures", 52},
                                   {"dead", 53},
                                   {"stray", 54},
                                   {"waitingBuffers", 55},
                                   {"passes", 56}}));
}

TEST(StatisticsReport, text_isATableOfEveryCount)
{
    EXPECT_EQ(TotalStatisticsReport(everyCount(), std::chrono::milliseconds(1250)).asText(),
              "all panels, after 1.250 s\n"
              "                         to the panel         from it\n"
              "  packets                           1              24\n"
              "  bytes                             2              22\n"
              "  records                           3              25\n"
              "  transfers                                        21\n"
              "  empty transfers                   6              23\n"
              "  malformed packets                                26\n"
              "  refused records                                  27\n"
              "  not parsed                                       28\n"
              "  packets cut short                 4\n"
              "  records in those                  5\n"
              "  superseded values                 7\n"
              "  duplicates                        8\n"
              "  pictures                         11\n"
              "  slices of pictures                9\n"
              "  bytes of slices                  10\n"
              "  covered pictures                 12\n"
              "  timed out                       100             200\n"
              "  stalled                         101             201\n"
              "  overflowed                      102             202\n"
              "  failed                          103             203\n"
              "  cancelled                       104             204\n"
              "  panel gone                      105             205\n"
              "  not taken by libusb             106             206\n"
              "  given up after 5 s              107             207\n"
              "  late                            108             208\n"
              "  bytes of these                  109             209\n"
              "  high priority waits              31 now, 32 at most\n"
              "  normal waits                     33 now, 34 at most\n"
              "  pictures wait                    35 now, 36 at most\n"
              "  chunks of firmware               37 sent again, 38 answered twice\n"
              "  records, from adding until taken\n"
              "  up to 1 us                       39\n"
              "  up to 1024 us                    40\n"
              "  up to 16 ms                      41\n"
              "  up to 16 s                       42\n"
              "  longer                           43\n"
              "  arrivals 51, departures 52, found dead 53, found stray 54, transfers not yet parsed 55\n");
}

TEST(StatisticsReport, panelThatIsAway_isSaidToBe)
{
    const std::string place = "1-2";
    const AbsenceReport report(place, std::chrono::milliseconds(1250));
    EXPECT_EQ(report.asText(), "no panel is attached at 1-2, after 1.250 s\n");
    EXPECT_EQ(parseJsonLines(report.asJson().format() + "\n").at(0),
              (Json{{"event", "absent"}, {"time", 1.25}, {"place", "1-2"}}));
}

TEST(StatisticsReport, textOfNothing_saysSo)
{
    EXPECT_EQ(TotalStatisticsReport({}, std::chrono::seconds(0)).asText(),
              "all panels, after 0.000 s\n"
              "  nothing yet\n"
              "  arrivals 0, departures 0, found dead 0, found stray 0, transfers not yet parsed 0\n");
}

} // namespace Vantor
