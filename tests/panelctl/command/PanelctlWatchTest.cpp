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

// And no packets, of which there is one when a panel has been there for 2 s.
TEST(PanelctlWatch, comingsAndGoings_arePrinted)
{
    const ToolResult result =
        runTool(panelctlOn({"--panels", "0", "--at", "2s", "plug", "--at", "3s", "unplug", "--at", "3500ms", "plug"},
                           {"watch", "--duration", "7", "--type", "99", "--log-level", "0"}));
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

// Two packets in a transfer, the second one cut short by a byte: what came before is delivered,
// and what comes later. The panel's information is left out.
TEST(PanelctlWatch, malformedPacket_appearsBehindWhatWasRight)
{
    const ToolResult result =
        runTool(panelctlOn({"--at", "1s", "emit raw hex=0c00010000000000050100aa0d00010000000000070200bb", "--at", "3s",
                            "emit type=7 hex=01"},
                           {"watch", "--count", "2", "--type", "5,7"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(withoutTimes(result.output), "0101  arrived  at 1-1\n"
                                           "0101  packet   type 5       1 byte   aa\n"
                                           "0101  malformed at byte 12 of 24: a packet of 13 bytes where 12 are left:  "
                                           "0d 00 01 00 00 00 00 00 07 02 00 bb\n"
                                           "0101  packet   type 7       1 byte   01\n"
                                           "2 packets, 1 arrival, 0 departures, 1 malformed\n");
    EXPECT_EQ(result.errors, "");
}

TEST(PanelctlWatch, typesAskedFor_areShownAlone)
{
    const ToolResult result = runTool(panelctlOn(
        {"--at", "1200ms", "emit type=5 hex=0a", "--at", "1210ms", "emit type=40 hex=0b", "--at", "1220ms",
         "emit type=200 hex=0c", "--at", "1230ms", "emit type=6 hex=0d", "--at", "1240ms", "emit type=5 hex=0e"},
        {"watch", "--count", "3", "--type", "200,firmwareupgradecommand,6"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(withoutTimes(result.output), "0101  arrived  at 1-1\n"
                                           "0101  packet   type 40      1 byte   0b\n"
                                           "0101  packet   type 200      1 byte   0c\n"
                                           "0101  packet   type 6       1 byte   0d\n"
                                           "3 packets, 1 arrival, 0 departures\n");
}

// By its place, as what comes back there may have another uid.
TEST(PanelctlWatch, panelAskedFor_isShownAloneAndWhenItComesBack)
{
    const ToolResult result =
        runTool(panelctlOn({"--panels",
                            "2",
                            "--at",
                            "500ms",
                            "emit 0 type=5 hex=0a",
                            "--at",
                            "500ms",
                            "emit 1 type=5 hex=0b",
                            "--at",
                            "500ms",
                            "emit 0 raw hex=000000000000000000",
                            "--at",
                            "1700ms",
                            "unplug 0",
                            "--at",
                            "1700ms",
                            "unplug 1",
                            "--at",
                            "3s",
                            "plug 1",
                            "--at",
                            "4s",
                            "emit 1 raw hex=000000000000000000"},
                           {"watch", "--panel", "1-2", "--duration", "6", "--type", "5", "--log-level", "0"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(withoutTimes(result.output),
              "0102  arrived  at 1-2\n"
              "0102  packet   type 5       1 byte   0b\n"
              "0102  left\n"
              "0102  arrived  at 1-2\n"
              "0102  malformed at byte 0 of 9: a packet of 0 bytes, less than its header has:  "
              "00 00 00 00 02 01 00 00 00\n"
              "1 packet, 2 arrivals, 1 departure, 1 malformed\n");
}

TEST(PanelctlWatch, panelThatIsNotThere_isAnsweredWithWhatIs)
{
    const ToolResult result = runTool(panelctlOn({}, {"watch", "--panel", "0999"}));
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "panelctl: no panel is called '0999'. Attached: 0101 (1-1).\n"
                             "  Name one by its uid or, in brackets here, its bus and ports.\n");
}

TEST(PanelctlWatch, placeWithoutAPanel_isWaitedFor)
{
    const ToolResult result =
        runTool(panelctlOn({"--panels", "2", "--at", "0s", "unplug 1", "--at", "3s", "plug 1", "--at", "5s",
                            "emit 1 type=5 hex=0b", "--at", "5s", "emit 0 type=5 hex=0c"},
                           {"watch", "--panel", "1-2", "--type", "5", "--count", "1"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(withoutTimes(result.output), ::testing::EndsWith("0102  arrived  at 1-2\n"
                                                                 "0102  packet   type 5       1 byte   0b\n"
                                                                 "1 packet, 1 arrival, 0 departures\n"));
    EXPECT_EQ(result.errors, "panelctl: no panel is attached at 1-2 yet; waiting for one.\n");
}

TEST(PanelctlWatch, noPlaceNorPanel_isNotWaitedFor)
{
    for (const char* const name : {"0101", "1", "1-", "1-0", "-1", "1-1.", "1-1-1", "1-256", "1-01", "1 -1"}) {
        const ToolResult result = runTool(panelctlOn({"--panels", "0"}, {"watch", std::string("--panel=") + name}));
        EXPECT_EQ(result.exitCode, 3) << name;
        EXPECT_THAT(result.errors, HasSubstr("no panel found")) << name;
    }
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
