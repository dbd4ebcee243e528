#include "panelctl/session/UsbIds.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ToolRun.h"

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

namespace {

using ::testing::HasSubstr;

constexpr const char* onePanel = "UID   BUS-PORT   LIMIT  DESCRIPTION\n"
                                 "0101  1-1         8192  Simulated panel\n";

} // namespace

TEST(PanelctlList, noPanel_saysSo)
{
    const ToolResult result = runTool(panelctlOn({"--panels", "0"}, {"list"}));
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.output, "");
    const std::vector<std::string> ids = UsbIds::list(); // dead:beef, unless configured otherwise
    EXPECT_EQ(result.errors, "panelctl: no panel found: no USB device with the id " + UsbIds::join(ids, " or ") +
                                 " is attached.\n"
                                 "  Is the panel powered and plugged in? `lsusb -d " +
                                 UsbIds::selectAll(ids) + "` shows what the system sees.\n");
}

TEST(PanelctlList, panels_areListedByUidWithoutALogLine)
{
    const ToolResult result = runTool(panelctlOn({"--panels", "2", "--max-packet", "4096"}, {"list"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, "UID   BUS-PORT   LIMIT  DESCRIPTION\n"
                             "0101  1-1         4096  Simulated panel\n"
                             "0102  1-2         4096  Simulated panel\n");
    EXPECT_EQ(result.errors, "");
}

TEST(PanelctlList, silentPanel_isListedWithTheReason)
{
    const ToolResult result =
        runTool(panelctlOn({"--at", "0s", "fault in silent sticky"}, {"list", "--timeout", "0.5"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, "UID   BUS-PORT   LIMIT  DESCRIPTION\n"
                             "0101  1-1            -  (no device information)\n");
    EXPECT_EQ(result.errors, "panelctl: panel 0101 (1-1) has not sent its device information within 0.5 s.\n"
                             "  It took the request (endpoint 0x02) but has sent nothing at all (endpoint 0x81). "
                             "Re-plug it, or wait longer with --timeout.\n");
}

TEST(PanelctlList, panelGivenUpAfterAUsbError_saysSo)
{
    const ToolResult result = runTool(
        panelctlOn({"--panels", "2", "--at", "0s", "fault 1 out status=EIO sticky"}, {"list", "--timeout", "3"}));
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.output, "UID   BUS-PORT   LIMIT  DESCRIPTION\n"
                             "0101  1-1         8192  Simulated panel\n"
                             "0102  1-2            -  (can't be used)\n");
    EXPECT_EQ(result.errors,
              "[libusb] TX LIBUSB_ERROR uid=102 size=15 actual=0\n"
              "panelctl: panel 0102 (1-2) could be used at first, but was given up after a USB error.\n"
              "  The library tries again within five seconds while panelctl runs, and every new run does at its start. "
              "Re-plug the panel if that does not help.\n"
              "  The library's own reason is in its log, above.\n");
}

TEST(PanelctlList, panelClaimedByAnotherProgram_saysSo)
{
    const std::string tool = MORVANE_PANELCTL;
    const TemporaryFile log;
    const std::string second = tool + " watch --count 1 --duration 20 > /dev/null & watch=$!; until grep -q claim " +
                               log.getPath() + "; do sleep 0.05; done; " + tool +
                               " list --log-level 0; code=$?; kill $watch; wait; exit $code";
    const ToolResult result = runTool({MORVANE_PANELSIM, "run", "--log", log.getPath(), "--", "/bin/sh", "-c", second});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.output, HasSubstr("0101  1-1            -  (can't be used)\n"));
    EXPECT_THAT(result.errors,
                HasSubstr("panelctl: panel 0101 (1-1) is attached but can't be used: another program or a kernel "
                          "driver has claimed interface 0 on /dev/bus/usb/001/002.\n"
                          "  Most likely a program is driving the panel: end it "
                          "(`panelctl doctor` names it).\n"));
}

TEST(PanelctlListLog, summaries_goToStandardError)
{
    const ToolResult result = runTool(panelctlOn({}, {"list", "--log-level", "3"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, onePanel);
    EXPECT_THAT(result.errors, HasSubstr("[libusb] >> New device: dead:beef bus=1 port=1 dev="));
}

TEST(PanelctlListLog, traces_goToStandardErrorUncut)
{
    const ToolResult result = runTool(panelctlOn({}, {"--log-level", "5", "list"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, onePanel);
    EXPECT_THAT(result.errors, HasSubstr("[libusb] Wait for message...\n"));
    EXPECT_THAT(result.errors, HasSubstr("[libusb] ~UsbDevice() uid=101\n"));
}

TEST(PanelctlListLog, flood_isSummedUp)
{
    const ToolResult result =
        runTool(panelctlOn({"--at", "0s", "fault out stall sticky"}, {"info", "--timeout", "1.5"}));
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_THAT(result.errors, HasSubstr("[libusb] TX Transfer stalled uid=101\n"));
    EXPECT_THAT(result.errors,
                ::testing::ContainsRegex("\\[libusb\\] TX Transfer stalled uid=101 \\([0-9]+ more\\)\n"));
    EXPECT_LT(std::count(result.errors.begin(), result.errors.end(), '\n'), 10);
}

TEST(PanelctlListLog, flood_endsBeforeTheError)
{
    const ToolResult result =
        runTool(panelctlOn({"--at", "0s", "fault out stall sticky"}, {"info", "--timeout", "0.5"}));
    EXPECT_GT(result.errors.find("panelctl: "), result.errors.rfind("[libusb]"));
}

} // namespace Vantor
