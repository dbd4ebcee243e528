#include "tests/support/TemporaryFolder.h"
#include "tests/support/ToolRun.h"

#include <csignal>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

// How often `part` is in `text`.
int count(const std::string& text, const std::string& part)
{
    int number = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++number;
    return number;
}

} // namespace

TEST(PanelctlSend, record_reachesThePanel)
{
    const TemporaryFile log;
    const ToolResult result =
        runTool(panelctlOn({"--log", log.getPath()}, {"send", "--type", "12", "--key", "3", "--hex", "de ad00 01"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output, ContainsRegex("^panel 0101 \\(1-1\\) has taken type 12, key 3, 4 payload bytes, in "
                                             "[0-9]+\\.[0-9] ms\n$"));
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(log.read(), HasSubstr("panel 0: record type 12, 4 bytes: de ad 00 01\n"));
}

TEST(PanelctlSend, record_goesToTheChosenPanelOnly)
{
    const TemporaryFile log;
    const ToolResult result = runTool(
        panelctlOn({"--panels", "2", "--log", log.getPath()}, {"send", "--type", "45", "--hex", "", "--panel", "1-2"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(log.read(), HasSubstr("panel 1: record type 45, 0 bytes"));
    EXPECT_THAT(log.read(), Not(HasSubstr("panel 0: record type 45")));
}

TEST(PanelctlSend, file_isSentAsItIs)
{
    const TemporaryFile log;
    const TemporaryFile payload(std::string("a\0\n\xff", 4));
    const ToolResult result =
        runTool(panelctlOn({"--log", log.getPath()}, {"send", "--type", "0", "--file", payload.getPath()}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(log.read(), HasSubstr("record type 0, 4 bytes: 61 00 0a ff\n"));
}

TEST(PanelctlSend, standardInput_isSentAsItIs)
{
    const TemporaryFile log;
    const std::string run =
        std::string("'") + MORVANE_PANELSIM + "' run --log '" + log.getPath() + "' -- '" + MORVANE_PANELCTL + "'";
    const ToolResult result =
        runTool({"/bin/sh", "-c", "(printf 'a'; sleep 0.3; printf 'b\\000\\n') | " + run + " send --type 0 --file -"});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(log.read(), HasSubstr("record type 0, 4 bytes: 61 62 00 0a\n"));
}

TEST(PanelctlSend, prefixesAndColons_areNoDigits)
{
    const TemporaryFile log;
    const ToolResult result =
        runTool(panelctlOn({"--log", log.getPath()}, {"send", "--type", "12", "--hex", " 0xdead:00:0X01  a1:0xB2c3 "}));
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(log.read(), HasSubstr("record type 12, 7 bytes: de ad 00 01 a1 b2 c3\n"));
}

// Neither replaced nor dropped as duplicates.
TEST(PanelctlSend, repeatedKeyedRecord_isSentEveryTime)
{
    const TemporaryFile log;
    const ToolResult result = runTool(
        panelctlOn({"--log", log.getPath()}, {"send", "--type", "5", "--key", "0", "--hex", "77", "--repeat", "25"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output, StartsWith("panel 0101 (1-1) has taken 25 times type 5, key 0, 1 payload byte, in "));
    EXPECT_EQ(count(log.read(), "record type 5, 1 byte: 77\n"), 25);
}

TEST(PanelctlSend, recordThatFitsExactly_isSent)
{
    const TemporaryFile payload(std::string(4096 - 11, 'x'));
    const ToolResult result =
        runTool(panelctlOn({"--max-packet", "4096"}, {"send", "--type", "5", "--file", payload.getPath()}));
    EXPECT_EQ(result.exitCode, 0);
}

TEST(PanelctlSend, largestPayloadOfAll_isSent)
{
    const TemporaryFile payload(std::string(65524, 'x'));
    const ToolResult result =
        runTool(panelctlOn({"--max-packet", "65535"}, {"send", "--type", "5", "--file", payload.getPath()}));
    EXPECT_EQ(result.exitCode, 0) << result.errors;
}

TEST(PanelctlSend, recordOneByteTooLarge_isRefusedAndNotSent)
{
    const TemporaryFile log;
    const TemporaryFile payload(std::string(4096 - 10, 'x'));
    const ToolResult result = runTool(panelctlOn({"--max-packet", "4096", "--log", log.getPath()},
                                                 {"send", "--type", "5", "--file", payload.getPath()}));
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(
        result.errors,
        "panelctl: the record is too large for panel 0101 (1-1): 4086 payload bytes, and its packet limit of 4096 "
        "bytes leaves room for 4085.\n"
        "  It would never leave and would hold back everything behind it, so it was not queued. "
        "Send it in smaller records.\n");
    EXPECT_THAT(log.read(), Not(HasSubstr("record type 5")));
}

TEST(PanelctlSend, noInformation_sendsNothing)
{
    const TemporaryFile log;
    const ToolResult result = runTool(panelctlOn({"--at", "0s", "fault in silent sticky", "--log", log.getPath()},
                                                 {"send", "--type", "5", "--hex", "00", "--timeout", "0.5"}));
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors,
                StartsWith("panelctl: panel 0101 (1-1) has not sent its device information within 0.5 s.\n"));
    EXPECT_THAT(log.read(), HasSubstr("record type 1, 4 bytes"));
    EXPECT_THAT(log.read(), Not(HasSubstr("record type 5")));
}

TEST(PanelctlSend, panelThatStopsTaking_timesOut)
{
    const ToolResult result =
        runTool(panelctlOn({"--at", "500ms", "fault out silent sticky"},
                           {"send", "--type", "5", "--hex", "00", "--repeat", "1000000", "--timeout", "1"}));
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(
        result.errors,
        StartsWith("panelctl: panel 0101 (1-1) has not taken the record within 1 s: 0 of 12 bytes on endpoint 0x02.\n"
                   "  The panel does not read the endpoint (firmware busy or hung), or the endpoint is stalled. "
                   "Re-plug it, or wait longer with --timeout.\n"
                   "  The record was still queued and goes no further, though the panel may have got it in a last "
                   "attempt.\n"
                   "  Taken before that: "));
    EXPECT_THAT(result.errors, ContainsRegex("Taken before that: [1-9][0-9]* of 1000000 records\\.\n$"));
}

TEST(PanelctlSend, packetTakenInPart_fails)
{
    const ToolResult result = runTool(panelctlOn({"--at", "500ms", "fault out short=5 once"},
                                                 {"send", "--type", "5", "--hex", "00", "--repeat", "1000000"}));
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errors,
                StartsWith("panelctl: panel 0101 (1-1) has taken only a part of the record's packet: 5 of 12 bytes on "
                           "endpoint 0x02.\n"
                           "  The rest is lost, as a packet taken in part is not sent again. Check the panel's "
                           "firmware.\n"
                           "  Taken before that: "));
}

// The first twenty or more are taken before the fault.
TEST(PanelctlSend, interruptedMeanwhile_saysHowManyWent)
{
    ToolRun run(panelctlOn({"--at", "500ms", "fault out silent sticky"},
                           {"send", "--type", "5", "--hex", "00", "--repeat", "1000000"}));
    run.let(std::chrono::milliseconds(2000));
    run.sendSignalToTool(SIGINT);
    EXPECT_EQ(run.finish(), 130);
    EXPECT_THAT(run.getErrors(), ContainsRegex("panelctl: interrupted, when panel 0101 \\(1-1\\) had taken "
                                               "[1-9][0-9]* of 1000000 records\\.\n"
                                               "  One more was on its way: whether the panel has got it is not "
                                               "known\\.\n"));
}

TEST(PanelctlSend, unpluggedMeanwhile_saysSo)
{
    const ToolResult result =
        runTool(panelctlOn({"--at", "500ms", "unplug"},
                           {"send", "--type", "5", "--hex", "00", "--repeat", "1000000", "--log-level", "0"}));
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors, StartsWith("panelctl: panel 0101 (1-1) went away: it was unplugged.\n"
                                          "  The record was on its way: whether the panel has got it is not known.\n"
                                          "  Taken before that: "));
}

TEST(PanelctlSend, unpluggedBeforeItsInformation_saysSo)
{
    const ToolResult result = runTool(panelctlOn({"--at", "0s", "fault in silent sticky", "--at", "500ms", "unplug"},
                                                 {"send", "--type", "5", "--hex", "00"}));
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_THAT(result.errors,
                HasSubstr("panelctl: panel 0101 (1-1) went away: it was unplugged. Nothing was sent.\n"));
}

TEST(PanelctlSend, givenUpMeanwhile_saysWhichTransferFailed)
{
    const ToolResult result = runTool(panelctlOn({"--at", "0s", "fault out status=EPROTO sticky"},
                                                 {"send", "--type", "5", "--hex", "00", "--log-level", "0"}));
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.errors, "panelctl: panel 0101 (1-1) went away: it was unplugged, or given up after a USB error "
                             "(send: LIBUSB_ERROR_IO). Nothing was sent.\n");
}

} // namespace Vantor
