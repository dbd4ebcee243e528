#include "tests/support/JsonLines.h"
#include "tests/support/PngSample.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ToolRun.h"

#include <algorithm>
#include <csignal>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

namespace {

using Json = nlohmann::json;

// Of a simulated panel: its name in a field of 80 bytes.
const std::string descriptionBytes = "53696d756c617465642070616e656c" + std::string(2 * 65, '0');

struct JsonResult {
    int exitCode;
    std::vector<Json> objects;
};

// Nothing else is said, on standard error neither.
JsonResult runJson(const ToolRun::Arguments& command)
{
    const ToolResult result = runTool(command);
    EXPECT_EQ(result.errors, "");
    return {result.exitCode, parseJsonLines(result.output)};
}

Json readyPanel(const std::string& uid, const std::string& place)
{
    return {{"event", "panel"},       {"uid", uid},
            {"place", place},         {"state", "ready"},
            {"packetLimit", 8192},    {"payloadLimit", 8181},
            {"announcedLimit", 8192}, {"description", "Simulated panel"},
            {"lastByte", 0},          {"descriptionBytes", descriptionBytes},
            {"failure", nullptr}};
}

Json panelWithoutInformation(const std::string& uid, const std::string& place, const std::string& state)
{
    return {{"event", "panel"},
            {"uid", uid},
            {"place", place},
            {"state", state},
            {"packetLimit", nullptr},
            {"payloadLimit", nullptr},
            {"announcedLimit", nullptr},
            {"description", nullptr},
            {"lastByte", nullptr},
            {"descriptionBytes", nullptr},
            {"failure", nullptr}};
}

} // namespace

TEST(PanelctlJson, list_hasAnObjectForEachPanel)
{
    const JsonResult result = runJson(panelctlOn({"--panels", "2"}, {"list", "--json"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.objects, (std::vector<Json>{readyPanel("0101", "1-1"), readyPanel("0102", "1-2")}));
}

TEST(PanelctlJson, listWithoutAPanel_isAnErrorWithItsHint)
{
    const JsonResult result = runJson(panelctlOn({"--panels", "0"}, {"--json", "list"}));
    EXPECT_EQ(result.exitCode, 3);
    ASSERT_EQ(result.objects.size(), 1u);
    Json error = result.objects.front();
    EXPECT_THAT(error["text"].get<std::string>(), ::testing::StartsWith("no panel found: no USB device with the id "));
    EXPECT_THAT(error["hint"].get<std::string>(), ::testing::StartsWith("Is the panel powered and plugged in? "));
    error.erase("text");
    error.erase("hint");
    EXPECT_EQ(error, (Json{{"event", "error"}, {"kind", "no-panel"}, {"exitCode", 3}}));
}

TEST(PanelctlJson, silentPanel_isListedWithAWarning)
{
    const JsonResult result =
        runJson(panelctlOn({"--at", "0s", "fault in silent sticky"}, {"list", "--json", "--timeout", "0.5"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.objects,
              (std::vector<Json>{panelWithoutInformation("0101", "1-1", "silent"),
                                 {{"event", "warning"},
                                  {"kind", "no-information"},
                                  {"uid", "0101"},
                                  {"text", "panel 0101 (1-1) has not sent its device information within 0.5 s."},
                                  {"hint", "It took the request (endpoint 0x02) but has sent nothing at all (endpoint "
                                           "0x81). Re-plug it, or wait longer with --timeout."}}}));
}

TEST(PanelctlJson, panelGivenUp_isUnusableAndAnError)
{
    const JsonResult result = runJson(panelctlOn({"--at", "0s", "fault out status=EIO sticky"},
                                                 {"list", "--json", "--timeout", "3", "--log-level", "0"}));
    EXPECT_EQ(result.exitCode, 1);
    ASSERT_EQ(result.objects.size(), 2u);
    Json panel = panelWithoutInformation("0101", "1-1", "unusable");
    panel["failure"] = {{"operation", "send"}, {"code", -1}, {"text", "send: LIBUSB_ERROR_IO"}};
    EXPECT_EQ(result.objects[0], panel);
    EXPECT_EQ(result.objects[1]["event"], "error");
    EXPECT_EQ(result.objects[1]["kind"], "panel-unusable");
    EXPECT_EQ(result.objects[1]["exitCode"], 1);
    EXPECT_EQ(result.objects[1]["failure"], panel["failure"]);
}

TEST(PanelctlJson, panelThatLeaves_isAnErrorWithItsFailure)
{
    const JsonResult result =
        runJson(panelctlOn({"--at", "0s", "fault out silent sticky", "--at", "1s", "unplug"},
                           {"send", "--json", "--type", "5", "--hex", "0102", "--timeout", "9", "--log-level", "0"}));
    EXPECT_EQ(result.exitCode, 4);
    ASSERT_EQ(result.objects.size(), 1u);
    EXPECT_EQ(result.objects[0]["kind"], "panel-left");
    EXPECT_EQ(result.objects[0]["failure"]["code"], -4);
    EXPECT_THAT(result.objects[0]["failure"]["text"].get<std::string>(),
                ::testing::EndsWith(": LIBUSB_ERROR_NO_DEVICE"));
}

TEST(PanelctlJson, info_isThePanelWithItsTraffic)
{
    const JsonResult result = runJson(panelctlOn({}, {"info", "--json"}));
    EXPECT_EQ(result.exitCode, 0);
    Json panel = readyPanel("0101", "1-1");
    panel["sentBytes"] = 15;     // the request, 8 + 3 + 4
    panel["receivedBytes"] = 94; // the answer, 8 + 3 + 83
    EXPECT_EQ(result.objects, std::vector<Json>{panel});
}

TEST(PanelctlJson, choiceThatFails_tellsWhichKind)
{
    const JsonResult several = runJson(panelctlOn({"--panels", "2"}, {"info", "--json"}));
    EXPECT_EQ(several.exitCode, 2);
    EXPECT_EQ(several.objects, (std::vector<Json>{{{"event", "error"},
                                                   {"kind", "which-panel"},
                                                   {"text", "2 panels are attached: 0101 (1-1), 0102 (1-2)."},
                                                   {"hint", "Say which one with --panel."},
                                                   {"exitCode", 2}}}));
    const JsonResult unknown = runJson(panelctlOn({}, {"info", "--json", "\xFF"}));
    EXPECT_EQ(unknown.exitCode, 3);
    EXPECT_EQ(unknown.objects,
              (std::vector<Json>{{{"event", "error"},
                                  {"kind", "no-such-panel"},
                                  {"text", "no panel is called '?'. Attached: 0101 (1-1)."},
                                  {"hint", "Name one by its uid or, in brackets here, its bus and ports."},
                                  {"exitCode", 3}}}));
}

TEST(PanelctlJson, watch_tellsWhatComesAndGoes)
{
    const JsonResult result = runJson(panelctlOn(
        {"--panels", "0", "--at", "200ms", "plug", "--at", "1s", "emit type=20 hex=00ff10", "--at", "2s", "unplug"},
        {"watch", "--json", "--duration", "3", "--log-level", "0"}));
    EXPECT_EQ(result.exitCode, 0);
    std::vector<Json> objects = result.objects;
    ASSERT_EQ(objects.size(), 5u);
    for (std::size_t i = 1; i < 4; ++i)
        takeNumber(objects[i], "time", 0, 3);
    EXPECT_EQ(objects[3]["failure"]["code"], -4); // LIBUSB_ERROR_NO_DEVICE, whatever noticed it first
    objects[3].erase("failure");
    EXPECT_EQ(objects, (std::vector<Json>{
                           {{"event", "warning"},
                            {"kind", "waiting"},
                            {"text", "no panel is attached yet; waiting for one."},
                            {"hint", ""},
                            {"uid", nullptr}},
                           {{"event", "arrived"}, {"uid", "0101"}, {"place", "1-1"}},
                           {{"event", "packet"},
                            {"uid", "0101"},
                            {"type", 20},
                            {"name", nullptr},
                            {"length", 3},
                            {"payload", "00ff10"}},
                           {{"event", "left"}, {"uid", "0101"}},
                           {{"event", "summary"}, {"packets", 1}, {"malformed", 0}, {"arrivals", 1}, {"departures", 1}},
                       }));
}

TEST(PanelctlJson, watchedPacket_isCutOnRequestAndNamed)
{
    const JsonResult result = runJson(panelctlOn({"--at", "1200ms", "emit type=40 hex=0102030405"},
                                                 {"watch", "--json", "--count", "1", "--bytes", "3"}));
    ASSERT_EQ(result.objects.size(), 3u);
    Json packet = result.objects[1];
    takeNumber(packet, "time", 0, 40);
    EXPECT_EQ(packet, (Json{{"event", "packet"},
                            {"uid", "0101"},
                            {"type", 40},
                            {"name", "FirmwareUpgradeCommand"},
                            {"length", 5},
                            {"payload", "010203"}}));
}

// A record of type 7 that claims three bytes and has two, in a packet that is right so far.
TEST(PanelctlJson, malformedPacket_isWatchedAsSuch)
{
    const JsonResult result =
        runJson(panelctlOn({"--at", "1200ms", "emit raw hex=0d00010000000000070300aabb"},
                           {"watch", "--json", "--duration", "3", "--type", "7", "--bytes", "4"}));
    ASSERT_EQ(result.objects.size(), 3u);
    Json malformed = result.objects[1];
    takeNumber(malformed, "time", 0, 40);
    EXPECT_EQ(malformed, (Json{{"event", "malformed"},
                               {"uid", "0101"},
                               {"kind", "record-length"},
                               {"text", "a record of type 7 with 3 bytes where 2 are left"},
                               {"offset", 8},
                               {"length", 5},
                               {"bytes", "070300aa"}}));
    EXPECT_EQ(result.objects[2],
              (Json{{"event", "summary"}, {"packets", 0}, {"malformed", 1}, {"arrivals", 1}, {"departures", 0}}));
}

TEST(PanelctlJson, watchThatTimesOut_endsWithSummaryAndError)
{
    const JsonResult result =
        runJson(panelctlOn({}, {"watch", "--json", "--count", "9", "--duration", "0.3", "--panel", "1-1"}));
    EXPECT_EQ(result.exitCode, 5);
    ASSERT_EQ(result.objects.size(), 3u);
    EXPECT_EQ(result.objects[1]["event"], "summary");
    EXPECT_EQ(result.objects[2], (Json{{"event", "error"},
                                       {"kind", "timed-out"},
                                       {"text", "only 0 of 9 packets came within 0.3 s."},
                                       {"hint", ""},
                                       {"exitCode", 5}}));
}

TEST(PanelctlJson, interrupt_isTheLastObject)
{
    ToolRun run(panelctlOn({}, {"watch", "--json"}));
    run.awaitOutput("arrived");
    run.sendSignal(SIGINT);
    EXPECT_EQ(run.finish(), 130);
    const std::vector<Json> objects = parseJsonLines(run.getOutput());
    EXPECT_EQ(
        objects.back(),
        (Json{{"event", "error"}, {"kind", "interrupted"}, {"text", "interrupted"}, {"hint", ""}, {"exitCode", 130}}));
    EXPECT_EQ(run.getErrors(), "");
}

TEST(PanelctlJson, send_tellsWhatWasTaken)
{
    JsonResult result =
        runJson(panelctlOn({}, {"send", "--json", "--type", "5", "--key", "7", "--hex", "0102", "--repeat", "3"}));
    EXPECT_EQ(result.exitCode, 0);
    ASSERT_EQ(result.objects.size(), 1u);
    takeNumber(result.objects[0], "seconds", 0, 5);
    EXPECT_EQ(result.objects[0], (Json{{"event", "sent"},
                                       {"uid", "0101"},
                                       {"place", "1-1"},
                                       {"type", 5},
                                       {"key", 7},
                                       {"length", 2},
                                       {"records", 3}}));
    result = runJson(panelctlOn({}, {"send", "--json", "--type", "5", "--hex", ""}));
    EXPECT_EQ(result.objects.at(0)["key"], nullptr);
}

TEST(PanelctlJson, sendOfTooMuch_isRefused)
{
    const TemporaryFile payload(std::string(8182, 'x'));
    const JsonResult result = runJson(panelctlOn({}, {"send", "--json", "--type", "5", "--file", payload.getPath()}));
    EXPECT_EQ(result.exitCode, 1);
    ASSERT_EQ(result.objects.size(), 1u);
    EXPECT_EQ(result.objects[0]["event"], "error");
    EXPECT_EQ(result.objects[0]["kind"], "too-large");
}

// 3,042 bytes: 3,024 of pixels, 144 × 168 ÷ 8, and headers of 8, 3 and 7.
TEST(PanelctlJson, draw_tellsWhatWasTaken)
{
    const TemporaryFile picture(encodeGrey(8, 8, Bytes(64, 0)));
    JsonResult result = runJson(panelctlOn({}, {"draw", "--json", picture.getPath(), "--lcd", "2", "--at", "1,3"}));
    EXPECT_EQ(result.exitCode, 0);
    ASSERT_EQ(result.objects.size(), 1u);
    takeNumber(result.objects[0], "seconds", 0, 5);
    EXPECT_EQ(result.objects[0], (Json{{"event", "drawn"},
                                       {"uid", "0101"},
                                       {"place", "1-1"},
                                       {"lcd", 2},
                                       {"x", 1},
                                       {"y", 3},
                                       {"width", 144},
                                       {"height", 168},
                                       {"form", "raw"},
                                       {"bytes", 3042},
                                       {"packets", 1}}));
}

// "123456789" has the CRC-32 cbf43926.
TEST(PanelctlJson, flash_tellsEachStep)
{
    const TemporaryFile image("123456789");
    const ToolResult result =
        runTool(panelctlOn({"--at", "0s", "fault boot reply=f0 skip=1"},
                           {"flash", "--json", "--yes", "--main", image.getPath(), "--log-level", "0"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors, "panelsim: panel 0: main MCU: 9 bytes, verified\n");
    std::vector<Json> objects = parseJsonLines(result.output);
    ASSERT_EQ(objects.size(), 5u);
    takeNumber(objects[1], "bytesPerSecond", 0.01, 10000);
    takeNumber(objects[2], "seconds", 0.1, 40);
    EXPECT_EQ(objects, (std::vector<Json>{
                           {{"event", "plan"},
                            {"uid", "0101"},
                            {"place", "1-1"},
                            {"main", {{"file", image.getPath()}, {"size", 9}, {"chunks", 1}, {"crc32", "cbf43926"}}},
                            {"servo", nullptr},
                            {"bytes", 9},
                            {"seconds", 1}},
                           {{"event", "progress"}, {"percent", 100}, {"written", 9}, {"bytes", 9}, {"image", "main"}},
                           {{"event", "written"},
                            {"bytes", 9},
                            {"repeated", 0},
                            {"refusals", {{{"code", 240}, {"text", "write failed"}, {"number", 1}}}}},
                           {{"event", "waiting"}, {"seconds", 30}},
                           {{"event", "answers"}},
                       }));
}

TEST(PanelctlJson, flashWithoutYes_isRefusedAsNobodyIsAsked)
{
    const TemporaryFile image("123456789");
    const JsonResult result = runJson(panelctlOn({}, {"flash", "--json", "--main", image.getPath()}));
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.objects.back(), (Json{{"event", "error"},
                                           {"kind", "usage"},
                                           {"text", "flash: nobody is asked with --json. Nothing was sent."},
                                           {"hint", "Add --yes."},
                                           {"exitCode", 2}}));
}

TEST(PanelctlJson, badArguments_areRefusedAsJson)
{
    const JsonResult result = runJson(panelctl({"--json", "lost"}));
    EXPECT_EQ(result.exitCode, 2);
    ASSERT_EQ(result.objects.size(), 1u);
    EXPECT_EQ(result.objects[0]["kind"], "usage");
    EXPECT_EQ(result.objects[0]["hint"], "`panelctl --help` shows what there is.");
}

TEST(PanelctlJson, helpAndVersion_areAnObjectToo)
{
    const JsonResult result = runJson(panelctl({"--version", "--json"}));
    EXPECT_EQ(result.exitCode, 0);
    ASSERT_EQ(result.objects.size(), 1u);
    EXPECT_EQ(result.objects[0]["event"], "help");
    EXPECT_THAT(result.objects[0]["text"].get<std::string>(), ::testing::StartsWith("panelctl "));
}

TEST(PanelctlJson, logLines_areObjectsWithTheirLevel)
{
    const JsonResult result = runJson(panelctlOn({}, {"list", "--json", "--log-level", "3"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.objects, ::testing::Contains(readyPanel("0101", "1-1")));
    const auto isArrival = [](const Json& object) {
        return object["event"] == "log" &&
               object["text"].get<std::string>().find("[libusb] >> New device: dead:beef bus=1 port=1 dev=") == 0;
    };
    const auto found = std::find_if(result.objects.begin(), result.objects.end(), isArrival);
    ASSERT_NE(found, result.objects.end());
    Json line = *found;
    line.erase("text");
    EXPECT_EQ(line, (Json{{"event", "log"}, {"level", 3}, {"times", 1}}));
}

TEST(PanelctlJson, traces_areObjectsWithTheirLevel)
{
    const JsonResult result = runJson(panelctlOn({}, {"list", "--json", "--log-level", "5"}));
    EXPECT_EQ(result.exitCode, 0);
    const auto isFarewell = [](const Json& object) {
        return object["event"] == "log" && object["level"] == 5 && object["times"] == 1 &&
               object["text"].get<std::string>().find(": ~UsbDevice 0x") != std::string::npos;
    };
    EXPECT_EQ(std::count_if(result.objects.begin(), result.objects.end(), isFarewell), 1);
}

TEST(PanelctlJson, flood_isOneObjectWithItsTimesAndEndsBeforeTheError)
{
    const JsonResult result =
        runJson(panelctlOn({"--at", "0s", "fault out stall sticky"}, {"info", "--json", "--timeout", "1.5"}));
    EXPECT_EQ(result.exitCode, 5);
    ASSERT_GE(result.objects.size(), 3u);
    EXPECT_LT(result.objects.size(), 10u);
    const Json stall{{"event", "log"}, {"level", 2}, {"text", "[libusb] TX Transfer stalled uid=101"}, {"times", 1}};
    EXPECT_EQ(result.objects[0], stall);
    EXPECT_EQ(result.objects.back()["event"], "error");
    for (std::size_t i = 1; i + 1 < result.objects.size(); ++i)
        EXPECT_EQ(result.objects[i]["event"], "log");
    EXPECT_GT(result.objects[1]["times"].get<int>(), 1);
}

// There is nowhere else left to say it.
TEST(PanelctlJson, outputThatCannotBeWritten_isToldAsText)
{
    const ToolResult full = runTool({"/bin/sh", "-c", "'" MORVANE_PANELCTL "' --json --version > /dev/full"});
    EXPECT_EQ(full.exitCode, 1);
    EXPECT_EQ(full.errors, "panelctl: standard output can't be written: No space left on device.\n");
}

} // namespace Vantor
