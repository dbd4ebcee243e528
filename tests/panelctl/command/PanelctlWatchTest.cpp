#include "tests/support/ToolRun.h"

#include <regex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

namespace {

using ::testing::HasSubstr;

// Without the times at the start of lines.
std::string withoutTimes(const std::string& output)
{
    return std::regex_replace(output, std::regex("(^|\n) *[0-9]+\\.[0-9]{3}  "), "$1");
}

} // namespace

TEST(PanelctlWatch, comingsAndGoings_arePrinted)
{
    const ToolResult result =
        runTool(panelctlOn({"--panels", "0", "--at", "200ms", "plug", "--at", "1s", "unplug", "--at", "1500ms", "plug"},
                           {"watch", "--duration", "2.5", "--log-level", "0"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(withoutTimes(result.output), "0101  arrived  at 1-1\n"
                                           "0101  left\n"
                                           "0101  arrived  at 1-1\n"
                                           "0 packets, 2 arrivals, 1 departure\n");
    EXPECT_EQ(result.errors, "panelctl: no panel is attached yet; waiting for one.\n");
}

TEST(PanelctlWatch, packets_arePrintedUpToTheCount)
{
    const ToolResult result = runTool(panelctlOn(
        {"--at", "1200ms", "emit type=20 hex=00ff10", "--at", "1300ms", "emit type=7 hex=01 count=5 every=10"},
        {"watch", "--count", "3"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(withoutTimes(result.output), "0101  arrived  at 1-1\n"
                                           "0101  packet   type 20      3 bytes  00 ff 10\n"
                                           "0101  packet   type 7       1 byte   01\n"
                                           "0101  packet   type 7       1 byte   01\n"
                                           "3 packets, 1 arrival, 0 departures\n");
    EXPECT_EQ(result.errors, "");
}

TEST(PanelctlWatch, longPacket_isCutOnRequest)
{
    const ToolResult result = runTool(
        panelctlOn({"--at", "1200ms", "emit type=20 hex=0102030405"}, {"watch", "--count", "1", "--bytes", "3"}));
    EXPECT_THAT(result.output, HasSubstr("type 20      5 bytes  01 02 03 (+2)\n"));
}

// DataPacketUnion itself has 83 bytes. A sanitizer sees a read by way of its array.
TEST(PanelctlWatch, packetBeyond83Bytes_isPrintedWhole)
{
    std::string digits;
    std::string printed;
    for (int i = 0; i < 100; ++i) {
        const std::string byte = {"0123456789"[i / 10], "0123456789"[i % 10]};
        digits += byte;
        printed += " " + byte;
    }
    const ToolResult result =
        runTool(panelctlOn({"--at", "1200ms", "emit type=5 hex=" + digits}, {"watch", "--count", "1"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output, HasSubstr("type 5     100 bytes " + printed + "\n"));
}

TEST(PanelctlWatch, countNotReached_isATimeOut)
{
    const ToolResult result = runTool(panelctlOn({"--panels", "0"}, {"watch", "--count", "2", "--duration", "0.2"}));
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(result.output, "0 packets, 0 arrivals, 0 departures\n");
    EXPECT_THAT(result.errors, HasSubstr("panelctl: only 0 of 2 packets came within 0.2 s.\n"));
}

// A panel given up after a USB error is still claimed by this process when the library
// takes it up again, and free five seconds later: no other program is to blame. It has not
// arrived, as nothing can be had from it, nor has it left when it is dropped.
TEST(PanelctlWatch, panelGivenUp_isExplained)
{
    ToolRun run(panelctlOn({"--at", "0s", "fault out status=EPROTO once"}, {"watch", "--duration", "9"}));
    run.awaitOutput("arrived");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(withoutTimes(run.getOutput()), "0101  arrived  at 1-1\n"
                                             "0101  left\n"
                                             "0 packets, 1 arrival, 1 departure\n");
    EXPECT_THAT(run.getErrors(),
                HasSubstr("panelctl: panel 0102 (1-1) could be used at first, but was given up after a USB error.\n"
                          "  The library tries again within five seconds while panelctl runs, and every new run does "
                          "at its start. Re-plug the panel if that does not help.\n"
                          "  The library's own reason is in its log, above.\n"));
    EXPECT_THAT(run.getErrors(), HasSubstr("[libusb] Unable to claim USB interface. Device busy. Aborting.\n"));
}

} // namespace Vantor
