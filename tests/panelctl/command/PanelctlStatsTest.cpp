#include "tests/support/JsonLines.h"
#include "tests/support/ToolRun.h"

#include <csignal>
#include <regex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

namespace {

using Json = nlohmann::json;
using ::testing::HasSubstr;

std::vector<Json> eventsOf(const std::vector<Json>& objects, const std::string& event)
{
    std::vector<Json> found;
    for (const Json& object : objects)
        if (object["event"] == event)
            found.push_back(object);
    return found;
}

// Without the times, which are other ones at each run.
std::string withoutTimesTaken(const std::string& output)
{
    const std::string text =
        std::regex_replace(output, std::regex(", after [0-9]+\\.[0-9]{3} s(, attached for [0-9]+\\.[0-9]{3} s)?"), "");
    return std::regex_replace(text, std::regex("  up to [0-9]+ [mu]?s +"), "  up to ");
}

} // namespace

// 15 bytes of request, 8 + 3 + 4, and 94 of answer, 8 + 3 + 83, for each of two panels.
TEST(PanelctlStats, atOnce_isWhatThePanelsSayOfThemselves)
{
    const ToolResult result = runTool(panelctlOn({"--panels", "2"}, {"stats"}));
    EXPECT_EQ(result.exitCode, 0);
    const std::string one = "                         to the panel         from it\n"
                            "  packets                           1               1\n"
                            "  bytes                            15              94\n"
                            "  records                           1               1\n"
                            "  transfers                                         1\n"
                            "  normal waits                      0 now, 1 at most\n"
                            "  records, from adding until taken\n"
                            "  up to 1\n";
    const std::string text = withoutTimesTaken(result.output);
    EXPECT_THAT(text, ::testing::StartsWith("panel 0101 (1-1)\n" + one + "panel 0102 (1-2)\n" + one +
                                            "all panels\n"
                                            "                         to the panel         from it\n"
                                            "  packets                           2               2\n"
                                            "  bytes                            30             188\n"
                                            "  records                           2               2\n"
                                            "  transfers                                         2\n"
                                            "  normal waits                      0 now, 1 at most\n"
                                            "  records, from adding until taken\n"));
    EXPECT_THAT(text, ::testing::EndsWith("  arrivals 2, departures 0, found dead 0, found stray 0, transfers not yet "
                                          "parsed 0\n"));
    EXPECT_EQ(result.errors, "");
}

// As of `list`; the counts are shown all the same.
TEST(PanelctlStats, atOnceOfASilentPanel_warns)
{
    const ToolResult result =
        runTool(panelctlOn({"--at", "0s", "fault in silent sticky"}, {"stats", "--json", "--timeout", "0.5"}));
    EXPECT_EQ(result.exitCode, 0);
    const std::vector<Json> objects = parseJsonLines(result.output);
    ASSERT_EQ(objects.size(), 3u);
    EXPECT_EQ(objects[0]["event"], "statistics");
    EXPECT_EQ(objects[1]["event"], "totals");
    EXPECT_EQ(objects[2]["event"], "warning");
    EXPECT_EQ(objects[2]["kind"], "no-information");
    EXPECT_EQ(objects[2]["uid"], "0101");
}

TEST(PanelctlStats, atOnceOfAPanelGivenUp_fails)
{
    const ToolRun::Arguments bus{"--panels", "2", "--at", "0s", "fault 0 out status=EIO sticky"};
    const ToolResult result = runTool(panelctlOn(bus, {"stats", "--json", "--timeout", "3", "--log-level", "0"}));
    EXPECT_EQ(result.exitCode, 1);
    const std::vector<Json> objects = parseJsonLines(result.output);
    ASSERT_EQ(objects.size(), 4u);
    EXPECT_EQ(objects[0]["failure"]["text"], "send: LIBUSB_ERROR_IO");
    EXPECT_EQ(objects[3]["kind"], "panel-unusable");
    EXPECT_EQ(objects[3]["failure"], objects[0]["failure"]);

    const ToolResult other = runTool(panelctlOn(bus, {"stats", "--panel", "1-2", "--timeout", "3"}));
    EXPECT_EQ(other.exitCode, 0);
}

// Away from 1 s to 5 s, and the library looks once a second.
TEST(PanelctlStats, panelThatComesBack_isAbsentAndThenCountedAnew)
{
    const ToolResult result = runTool(
        panelctlOn({"--at", "1s", "unplug", "--at", "5s", "plug"},
                   {"stats", "--json", "--every", "3.2", "--duration", "8", "--panel", "1-1", "--log-level", "0"}));
    EXPECT_EQ(result.exitCode, 0);
    std::vector<Json> objects = parseJsonLines(result.output);
    ASSERT_EQ(objects.size(), 3u);
    takeNumber(objects[0], "time", 3.2, 9);
    EXPECT_EQ(objects[0], (Json{{"event", "absent"}, {"place", "1-1"}}));
    EXPECT_EQ(objects[2]["event"], "statistics");
    EXPECT_LT(objects[2]["sinceArrival"].get<double>(), objects[2]["time"].get<double>() - 4);
    EXPECT_GT(objects[2]["sinceArrival"].get<double>(), 0);
}

TEST(PanelctlStats, atOnceWithoutAPanel_saysSo)
{
    const ToolResult result = runTool(panelctlOn({"--panels", "0"}, {"stats"}));
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors, HasSubstr("panelctl: no panel found"));
}

// A second apart, as what waits shares a transfer: a good packet of 12 bytes, one of 13 with
// a record that is too long, a transfer that no parser is given, and a packet of length 7;
// between them what the panel says of itself when the library asks, 94 bytes.
TEST(PanelctlStats, malformedPackets_areCounted)
{
    const ToolResult result = runTool(
        panelctlOn({"--at", "500ms", "emit type=5 hex=0a", "--at", "4s", "emit raw hex=0d00010000000000070300aabb",
                    "--at", "5s", "emit raw hex=0000000000000000", "--at", "6s", "emit raw hex=070000000000000000"},
                   {"stats", "--json", "--duration", "7"}));
    EXPECT_EQ(result.exitCode, 0);
    const std::vector<Json> objects = parseJsonLines(result.output);
    ASSERT_EQ(objects.size(), 2u);
    const Json& panel = objects[0];
    EXPECT_EQ(panel["event"], "statistics");
    EXPECT_EQ(panel["uid"], "0101");
    EXPECT_EQ(panel["place"], "1-1");
    EXPECT_EQ(panel["failure"], nullptr);
    EXPECT_GE(panel["time"].get<double>(), 7);
    EXPECT_GE(panel["sinceArrival"].get<double>(), 5); // it was there before, but is noticed after that
    EXPECT_EQ(panel["timesToTaken"].size(), 36u);
    EXPECT_EQ(panel["received"]["buffers"], 5);
    EXPECT_EQ(panel["received"]["bytes"], 12 + 13 + 8 + 9 + 94);
    EXPECT_EQ(panel["received"]["records"], 2);
    EXPECT_EQ(panel["received"]["packets"], 3);
    EXPECT_EQ(panel["received"]["malformedPackets"], 1);
    EXPECT_EQ(panel["received"]["refusedRecords"], 1);
    EXPECT_EQ(panel["received"]["unparsedBuffers"], 1);
    EXPECT_EQ(objects[1]["event"], "totals");
    EXPECT_EQ(objects[1]["received"], panel["received"]);
    EXPECT_EQ(objects[1]["arrivals"], 1);
}

TEST(PanelctlStats, everySoOften_itIsShownUpToTheEnd)
{
    const ToolResult result = runTool(
        panelctlOn({"--panels", "2"}, {"stats", "--json", "--every", "1", "--duration", "2.5", "--panel", "1-2"}));
    EXPECT_EQ(result.exitCode, 0);
    const std::vector<Json> objects = parseJsonLines(result.output);
    ASSERT_EQ(objects.size(), 3u);
    const double times[] = {1, 2, 2.5};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(objects[i]["event"], "statistics");
        EXPECT_EQ(objects[i]["uid"], "0102");
        EXPECT_GE(objects[i]["time"].get<double>(), times[i]);
        EXPECT_LT(objects[i]["time"].get<double>(), times[i] + 5);
    }
}

TEST(PanelctlStats, panelThatHasLeft_staysInTheTotals)
{
    const ToolResult result = runTool(panelctlOn({"--at", "500ms", "emit type=5 hex=0a", "--at", "1700ms", "unplug"},
                                                 {"stats", "--json", "--duration", "3", "--log-level", "0"}));
    const std::vector<Json> objects = parseJsonLines(result.output);
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_EQ(objects[0]["event"], "totals");
    EXPECT_EQ(objects[0]["received"]["records"], 1);
    EXPECT_EQ(objects[0]["arrivals"], 1);
    EXPECT_EQ(objects[0]["departures"], 1);
}

TEST(PanelctlStats, interrupt_showsItOnceMore)
{
    ToolRun run(panelctlOn({}, {"stats", "--every", "0.2"}));
    run.awaitOutput("all panels, ");
    run.sendSignal(SIGINT);
    EXPECT_EQ(run.finish(), 130);
    EXPECT_THAT(run.getOutput(), ::testing::EndsWith("parsed 0\n"));
    EXPECT_EQ(run.getErrors(), "panelctl: interrupted\n");
}

TEST(PanelctlStats, watch_showsItAtTheEnd)
{
    const ToolResult result = runTool(panelctlOn({"--panels", "2", "--at", "500ms", "emit type=5 hex=0a"},
                                                 {"watch", "--json", "--stats", "--duration", "1.7"}));
    EXPECT_EQ(result.exitCode, 0);
    const std::vector<Json> objects = parseJsonLines(result.output);
    EXPECT_EQ(eventsOf(objects, "summary").size(), 1u);
    const std::vector<Json> panels = eventsOf(objects, "statistics");
    ASSERT_EQ(panels.size(), 2u);
    EXPECT_EQ(panels[0]["received"]["records"], 1);
    EXPECT_EQ(panels[1]["received"]["records"], 0);
    EXPECT_EQ(objects.back()["event"], "totals");
    EXPECT_EQ(objects.back()["received"]["records"], 1);
}

TEST(PanelctlStats, watchOfOnePanel_showsItsOwnAlone)
{
    const ToolResult result =
        runTool(panelctlOn({"--panels", "2"}, {"watch", "--json", "--stats", "--duration", "0.3", "--panel", "0102"}));
    const std::vector<Json> objects = parseJsonLines(result.output);
    EXPECT_EQ(eventsOf(objects, "statistics").size(), 1u);
    EXPECT_EQ(objects.back()["uid"], "0102");
}

} // namespace Vantor
