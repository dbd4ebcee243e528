#include "tests/support/ToolRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

// 15 bytes: the request, 8 + 3 + 4. 94 bytes: the answer, 8 + 3 + 83.
TEST(PanelctlInfo, panel_isDescribed)
{
    const ToolResult result = runTool(panelctlOn({}, {"info"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, "uid           0101\n"
                             "bus-port      1-1\n"
                             "description   Simulated panel\n"
                             "packet limit  8192 bytes, which leaves 8181 for a record's payload\n"
                             "last byte     0x00, meaning fixed by its firmware\n"
                             "traffic       15 bytes to it and 94 from it since panelctl was started\n");
    EXPECT_EQ(result.errors, "");
}

TEST(PanelctlInfo, limitOf1024_isNotTakenOver)
{
    const ToolResult result = runTool(panelctlOn({"--max-packet", "1024"}, {"info"}));
    EXPECT_THAT(result.output,
                ::testing::HasSubstr("packet limit  1100 bytes, which leaves 1089 for a record's payload\n"
                                     "              (it announces 1024; only more than 1024 is taken over)\n"));
}

TEST(PanelctlInfo, limitOf1025_isTakenOver)
{
    const ToolResult result = runTool(panelctlOn({"--max-packet", "1025"}, {"info"}));
    EXPECT_THAT(result.output,
                ::testing::HasSubstr("packet limit  1025 bytes, which leaves 1014 for a record's payload\nlast"));
}

TEST(PanelctlInfo, severalPanels_needAChoice)
{
    const ToolResult result = runTool(panelctlOn({"--panels", "2"}, {"info"}));
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "panelctl: 2 panels are attached: 0101 (1-1), 0102 (1-2).\n"
                             "  Say which one with --panel.\n");
}

TEST(PanelctlInfo, choice_isByUidOrPlace)
{
    for (const char* const name : {"0102", "102", "0x102", "0X0102", "1-2"}) {
        const ToolResult result = runTool(panelctlOn({"--panels", "2"}, {"info", "--panel", name}));
        EXPECT_EQ(result.exitCode, 0) << name;
        EXPECT_THAT(result.output, ::testing::StartsWith("uid           0102\nbus-port      1-2\n")) << name;
    }
}

TEST(PanelctlInfo, choice_needsNoOption)
{
    const ToolResult result = runTool(panelctlOn({"--panels", "2"}, {"info", "0102"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output, ::testing::StartsWith("uid           0102\n"));
    EXPECT_EQ(runTool(panelctl({"info", "0102", "--panel", "0101"})).exitCode, 2);
}

TEST(PanelctlInfo, unknownPanel_isAnsweredWithWhatIsThere)
{
    for (const char* const name : {"0103", "1-3", "", "0x", "00102"}) {
        const ToolResult result = runTool(panelctlOn({"--panels", "2"}, {"info", "--panel", name}));
        EXPECT_EQ(result.exitCode, 3);
        EXPECT_EQ(result.errors, "panelctl: no panel is called '" + std::string(name) +
                                     "'. Attached: 0101 (1-1), 0102 (1-2).\n"
                                     "  Name one by its uid or, in brackets here, its bus and ports.\n");
    }
}

TEST(PanelctlInfo, panelThatTakesNothing_timesOut)
{
    const ToolResult result =
        runTool(panelctlOn({"--at", "0s", "fault out silent sticky"}, {"info", "--timeout", "0.5"}));
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors,
              "panelctl: panel 0101 (1-1) has not sent its device information within 0.5 s.\n"
              "  It has not taken the request for it either (0 bytes on endpoint 0x02): its firmware is not running, "
              "hangs, or has stalled the endpoint. Re-plug it.\n");
}

// The library asks again after 2 s, and the bytes of all attempts add up: 9 + 9 are more than
// the request's 15, but none was taken whole.
TEST(PanelctlInfo, panelThatTakesTheRequestInPart_timesOut)
{
    for (const char* const timeout : {"0.5", "3.5"}) {
        const ToolResult result =
            runTool(panelctlOn({"--at", "0s", "fault out short=9 sticky"}, {"info", "--timeout", timeout}));
        EXPECT_EQ(result.exitCode, 5);
        const std::string bytes = timeout[0] == '0' ? "9" : "18";
        EXPECT_EQ(result.errors, "panelctl: panel 0101 (1-1) has not sent its device information within " +
                                     std::string(timeout) +
                                     " s.\n"
                                     "  It has taken the request for it only in part (" +
                                     bytes +
                                     " bytes on endpoint 0x02), and the rest is not sent again. "
                                     "Check the panel's firmware.\n");
    }
}

// Its answer is cut to 5 bytes, which the library does not even parse.
TEST(PanelctlInfo, panelThatSendsOtherThings_timesOut)
{
    const ToolResult result =
        runTool(panelctlOn({"--at", "0s", "fault in short=5 once"}, {"info", "--timeout", "0.5"}));
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(result.errors, "panelctl: panel 0101 (1-1) has not sent its device information within 0.5 s.\n"
                             "  It took the request (endpoint 0x02) and does send packets (5 bytes), but 1 of its "
                             "transfers came malformed and did not get through whole. "
                             "`panelctl watch` shows them. Check the panel's firmware.\n");
}

} // namespace Vantor
