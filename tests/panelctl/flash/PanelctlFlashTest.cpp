#include "tests/support/TemporaryFolder.h"
#include "tests/support/ToolRun.h"

#include <csignal>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

namespace {

using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

const std::string recovery =
    "  The panel is left half written, and may not work until that is mended: run the same command again, which "
    "writes everything from the start. If the panel does not answer then, re-plug it and try once more.\n";

const std::string unreadOutput =
    "panelctl: all is written, and panel 0101 (1-1) answers; only standard output could not "
    "be written: Broken pipe.\n";

// No two chunks alike.
std::string firmware(std::size_t size)
{
    std::string bytes;
    std::uint32_t state = static_cast<std::uint32_t>(size);
    while (bytes.size() < size) {
        state = state * 1664525 + 1013904223;
        bytes += static_cast<char>(state >> 24);
    }
    return bytes;
}

ToolRun::Arguments join(ToolRun::Arguments first, const ToolRun::Arguments& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

ToolRun::Arguments flash(const ToolRun::Arguments& bus, const ToolRun::Arguments& arguments)
{
    return panelctlOn(join({"--chunk-time", "0"}, bus), join({"flash"}, arguments));
}

// Of what is sent, the information's request, the upgrade's and one chunk are taken.
const ToolRun::Arguments silentAfterOneChunk{
    "--at", "0s", "fault out delay=0", "--at", "0s", "fault out delay=0",
    "--at", "0s", "fault out delay=0", "--at", "0s", "fault out silent sticky"};

// Time for the tool to see, and tell, that the first chunk is written before the second is.
const ToolRun::Arguments slowSecondChunk{"--at", "0s", "fault boot delay=500 skip=2"};

bool isFirmwareRecorded(const TemporaryFile& log)
{
    return log.read().find("record type 41") != std::string::npos ||
           log.read().find("record type 44") != std::string::npos;
}

} // namespace

TEST(PanelctlFlash, bothImages_areWrittenAsTheyAre)
{
    const TemporaryFile main(firmware(10000));
    const TemporaryFile servo(firmware(4097));
    const TemporaryFolder folder;
    const ToolResult result = runTool(flash(join(slowSecondChunk, {"--flash-dir", folder.getPath()}),
                                            {"--main", main.getPath(), "--servo", servo.getPath(), "--yes"}));
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(result.output, ContainsRegex("^panel     0101 \\(1-1\\), Simulated panel\n"
                                             "main      10000 bytes in 3 chunks, CRC-32 0x[0-9a-f]{8}, from '.*'\n"
                                             "servo     4097 bytes in 2 chunks, CRC-32 0x[0-9a-f]{8}, from '.*'\n"
                                             "time      about 2 s\n"
                                             "( .*\n)+"
                                             "100 %  14097 of 14097 bytes, servo image, .* KiB/s\n"
                                             "written   14097 bytes, each chunk confirmed, in [0-9]+\\.[0-9] s\n"
                                             "waiting   for the panel to answer \\(30 s at most\\)\n"
                                             "answers   yes\n$"));
    EXPECT_THAT(result.output, ContainsRegex("\n 29 %  4096 of 14097 bytes, main image, "));
    EXPECT_EQ(contentOf(folder / "panel0-main.bin"), main.read());
    EXPECT_EQ(contentOf(folder / "panel0-servo.bin"), servo.read());
}

// The library calls a servo image that is not there an error.
TEST(PanelctlFlash, mainAlone_leavesTheServoMcu)
{
    const TemporaryFile main(firmware(5000));
    const TemporaryFolder folder;
    const ToolResult result = runTool(flash({"--flash-dir", folder.getPath()}, {"--main", main.getPath(), "--yes"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output, HasSubstr("\nservo     left as it is\n"));
    EXPECT_THAT(result.errors, Not(HasSubstr("[libusb]")));
    EXPECT_EQ(contentOf(folder / "panel0-main.bin"), main.read());
    EXPECT_FALSE(std::filesystem::exists(folder / "panel0-servo.bin"));
}

// In packets that just hold a chunk.
TEST(PanelctlFlash, servoAlone_leavesTheMainMcu)
{
    const TemporaryFile servo(firmware(4096));
    const TemporaryFolder folder;
    const ToolResult result = runTool(
        flash({"--max-packet", "4120", "--flash-dir", folder.getPath()}, {"--servo", servo.getPath(), "--yes"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output, HasSubstr("\nmain      left as it is\n"));
    EXPECT_THAT(result.output, HasSubstr("\n100 %  4096 of 4096 bytes, servo image, "));
    EXPECT_EQ(contentOf(folder / "panel0-servo.bin"), servo.read());
    EXPECT_FALSE(std::filesystem::exists(folder / "panel0-main.bin"));
}

TEST(PanelctlFlash, chosenPanel_isTheOnlyOneWritten)
{
    const TemporaryFile main(firmware(100));
    const TemporaryFolder folder;
    const ToolResult result = runTool(flash({"--panels", "2", "--flash-dir", folder.getPath()},
                                            {"--main", main.getPath(), "--yes", "--panel", "1-2"}));
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(result.output, StartsWith("panel     0102 (1-2), Simulated panel\n"));
    EXPECT_EQ(contentOf(folder / "panel1-main.bin"), main.read());
    EXPECT_FALSE(std::filesystem::exists(folder / "panel0-main.bin"));
}

TEST(PanelctlFlash, severalPanels_mustBeChosenFrom)
{
    const TemporaryFile main("x");
    const ToolResult result = runTool(flash({"--panels", "2"}, {"--main", main.getPath(), "--yes"}));
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.errors, "panelctl: 2 panels are attached: 0101 (1-1), 0102 (1-2).\n"
                             "  Say which one with --panel.\n");
}

TEST(PanelctlFlash, noPanel_isSaid)
{
    const TemporaryFile main("x");
    const ToolResult result = runTool(panelctlOn({"--panels", "0"}, {"flash", "--main", main.getPath(), "--yes"}));
    EXPECT_EQ(result.exitCode, 3);
}

// A chunk is a record of 4109 bytes, behind two headers of 3 and 8.
TEST(PanelctlFlash, packetLimitOneByteTooSmall_isRefusedAndNothingSent)
{
    const TemporaryFile main("x");
    const TemporaryFile log;
    const ToolResult result =
        runTool(flash({"--max-packet", "4119", "--log", log.getPath()}, {"--main", main.getPath(), "--yes"}));
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "panelctl: panel 0101 (1-1) can't be flashed: its packet limit is 4119 bytes, and a "
                             "packet with a chunk of firmware has 4120.\n"
                             "  The first chunk would never leave and would hold back everything behind it, so "
                             "nothing was sent. The limit is the panel's own: `panelctl info` shows it.\n");
    EXPECT_FALSE(isFirmwareRecorded(log));
}

TEST(PanelctlFlash, nobodyToAsk_isRefusedAndNothingSent)
{
    const TemporaryFile main(firmware(10));
    const TemporaryFile log;
    const ToolResult result = runTool(flash({"--log", log.getPath()}, {"--main", main.getPath()}));
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.output, HasSubstr("main      10 bytes in 1 chunk, CRC-32 0x"));
    EXPECT_EQ(result.errors, "panelctl: flash: nobody can be asked, as standard input and output are not both a "
                             "terminal. Nothing was sent.\n"
                             "  Add --yes to flash without a question.\n");
    EXPECT_FALSE(isFirmwareRecorded(log));
}

TEST(PanelctlFlash, panelThatStopsTaking_isStuckAndSaysSo)
{
    const TemporaryFile main(firmware(5000));
    const TemporaryFile servo(firmware(5000));
    const ToolResult result = runTool(flash(silentAfterOneChunk, {"--main", main.getPath(), "--servo", servo.getPath(),
                                                                  "--yes", "--timeout", "3", "--log-level", "0"}));
    EXPECT_EQ(result.exitCode, 6);
    EXPECT_THAT(result.errors,
                StartsWith("panelctl: panel 0101 (1-1) has made no progress for 3 s: it had confirmed 4096 of 5000 "
                           "bytes of the main image (4096 of 10000 bytes in all).\n"
                           "  It takes nothing any more (endpoint 0x02): its firmware hangs, or has stalled the "
                           "endpoint.\n" +
                           recovery));
}

// It may hold for ever: no promise that a repeat mends it.
TEST(PanelctlFlash, flashThatFailsHalfWay_isNotSaidToBeMendedByARepeat)
{
    const TemporaryFile main(firmware(5000));
    const ToolResult result = runTool(flash({"--at", "0s", "fault boot reply=F1 skip=2 sticky"},
                                            {"--main", main.getPath(), "--yes", "--timeout", "3"}));
    EXPECT_EQ(result.exitCode, 6);
    EXPECT_THAT(result.errors,
                HasSubstr("[libusb] Failed to erase sector on board 1 address=0x1000 status=0xf1 uid=257"));
    EXPECT_THAT(result.errors, ContainsRegex("Since then it has replied [0-9]+ times \\(erase failed: [0-9]+\\)\\.\n"
                                             "  The panel is left half written, and may not work\\. Its flash fails at "
                                             "this place each time, which running the same command again may not mend: "
                                             "is the image too large for it, or meant for another panel\\?\n"));
}

TEST(PanelctlFlash, failuresThatPass_areToldAfterSuccess)
{
    const TemporaryFile main(firmware(5000));
    const TemporaryFolder folder;
    const ToolResult result =
        runTool(flash({"--at", "0s", "fault boot reply=F2 skip=2", "--flash-dir", folder.getPath()},
                      {"--main", main.getPath(), "--yes"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output,
                HasSubstr(" s\nreplies   failed, send again: 1\nwaiting   for the panel to answer (30 s at most)\n"
                          "answers   yes\n"));
    EXPECT_EQ(contentOf(folder / "panel0-main.bin"), main.read());
}

TEST(PanelctlFlash, pulledMeanwhile_saysHowFarItGot)
{
    const TemporaryFile main(firmware(10000));
    const ToolResult result = runTool(
        flash({"--at", "0s", "fault boot unplug skip=3"}, {"--main", main.getPath(), "--yes", "--log-level", "0"}));
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_THAT(result.errors, StartsWith("panelctl: panel 0101 (1-1) went away while it was written: it was "
                                          "unplugged. It had confirmed 8192 of 10000 bytes of the main image.\n"
                                          "  Plug it in again. " +
                                          recovery.substr(2)));
}

// On a quiet bus its last confirmation comes some 1.1 s after the start, and the library's own end 2 s later: it leaves
// between the two. A library that was quicker meets a panel that takes nothing until it has restarted.
TEST(PanelctlFlash, panelThatRestarts_isWaitedFor)
{
    const TemporaryFile main(firmware(10));
    const ToolRun::Arguments bus{"--chunk-time", "0", "--at", "2.1s", "unplug", "--at", "2.8s", "plug"};
    const ToolResult result = runTool(
        panelctlOn(join(silentAfterOneChunk, bus), {"flash", "--main", main.getPath(), "--yes", "--log-level", "0"}));
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(result.output, EndsWith("\nanswers   yes\n"));
}

TEST(PanelctlFlash, panelThatLeavesAfterwards_isSaidToHaveLeft)
{
    const TemporaryFile main(firmware(10));
    const ToolResult result = runTool(flash(join(silentAfterOneChunk, {"--at", "2.5s", "unplug"}),
                                            {"--main", main.getPath(), "--yes", "--timeout", "3", "--log-level", "0"}));
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_THAT(result.errors, StartsWith("panelctl: the firmware is written, every chunk of it confirmed, but panel "
                                          "0101 (1-1) left the bus and has not come back within 3 s.\n"
                                          "  Re-plug it, then see with `panelctl info` whether it answers. If it does "
                                          "not, is this the right firmware for it?\n"));
}

// As if each chunk had been confirmed; another panel's word does not count.
TEST(PanelctlFlash, repliesOfAnotherPanel_doNotCount)
{
    const TemporaryFile main(firmware(5000));
    const ToolResult result = runTool(flash({"--panels", "2", "--at", "0s", "fault boot duplicate skip=1", "--at", "0s",
                                             "emit 1 type=40 hex=0101001000000000000000000000 count=100 every=20"},
                                            {"--main", main.getPath(), "--yes", "--panel", "1-1"}));
    EXPECT_EQ(result.exitCode, 6);
    EXPECT_THAT(result.errors, HasSubstr("offset 4096 of the main image was never confirmed"));
}

// Twice at once, as a terminal and a parent deliver it.
TEST(PanelctlFlash, firstInterrupt_warnsAndGoesOn)
{
    const TemporaryFile main(firmware(20000));
    ToolRun run(flash(slowSecondChunk, {"--main", main.getPath(), "--yes"}));
    run.awaitOutput(" bytes, main image, ");
    run.sendSignalToTool(SIGINT);
    run.let(std::chrono::milliseconds(20));
    run.sendSignalToTool(SIGINT);
    EXPECT_EQ(run.finish(), 0);
    EXPECT_THAT(run.getOutput(), EndsWith("\nanswers   yes\n"));
    EXPECT_THAT(run.getErrors(), StartsWith("panelctl: interrupted, but panel 0101 (1-1) would be left half written: "
                                            "the upgrade goes on.\n"
                                            "  Press Ctrl-C once more to leave all the same.\n"));
    EXPECT_THAT(run.getErrors(), Not(HasSubstr("interrupted, when")));
}

// The simulator gets it as well, and lets the program have its way.
TEST(PanelctlFlash, firstInterruptOfATerminal_goesOnForMoreThan3Seconds)
{
    const TemporaryFile main(firmware(160000));
    ToolRun run(flash({}, {"--main", main.getPath(), "--yes"}), ToolRun::Terminal{100});
    run.awaitOutput("[#"); // of which number of bytes nobody knows
    run.type("\x03");
    run.awaitOutput("the upgrade goes on.");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_THAT(run.getOutput(), HasSubstr("answers   yes"));
    // The panel replies all the time, and the library's pause is still to come at the end.
    EXPECT_THAT(run.getOutput(), Not(HasSubstr("no reply")));
    EXPECT_THAT(run.getOutput(), Not(ContainsRegex(" 0:00 left")));
}

TEST(PanelctlFlash, secondInterrupt_leavesAndTellsHowToRecover)
{
    const TemporaryFile main(firmware(100000));
    ToolRun run(flash({}, {"--main", main.getPath(), "--yes"}));
    run.awaitOutput(" bytes, main image, ");
    run.sendSignalToTool(SIGTERM);
    run.awaitErrors("Interrupt it once more to leave all the same.\n");
    run.let(std::chrono::milliseconds(600));
    run.sendSignalToTool(SIGTERM);
    EXPECT_EQ(run.finish(), 143);
    EXPECT_LT(run.getSeconds(), 2);
    EXPECT_THAT(run.getErrors(), ContainsRegex("\npanelctl: interrupted, when panel 0101 \\(1-1\\) had confirmed "
                                               "[0-9]+ of 100000 bytes of the main image\\.\n  The panel is"));
    EXPECT_THAT(run.getErrors(), HasSubstr(recovery));
}

// Nothing is at risk any more: the first one leaves, although there was one before.
TEST(PanelctlFlash, interruptAfterTheLastChunk_leaves)
{
    const TemporaryFile main(firmware(10));
    ToolRun run(flash(silentAfterOneChunk, {"--main", main.getPath(), "--yes", "--log-level", "0"}));
    run.awaitOutput("100 %");
    run.sendSignalToTool(SIGINT);
    run.awaitErrors("panelctl: interrupted, when panel 0101 (1-1) had confirmed all of the firmware: the upgrade ends "
                    "within a second.\n  Press Ctrl-C once more to leave all the same.\n");
    run.awaitOutput("waiting ");
    run.sendSignalToTool(SIGINT);
    EXPECT_EQ(run.finish(), 130);
    EXPECT_LT(run.getSeconds(), 3);
    EXPECT_THAT(run.getErrors(),
                HasSubstr("panelctl: interrupted, when panel 0101 (1-1) had confirmed all of the firmware, but before "
                          "it was seen to answer again.\n"
                          "  `panelctl info` shows whether it does.\n"));
}

TEST(PanelctlFlash, terminalThatHangsUp_doesNotEndIt)
{
    const TemporaryFile main(firmware(10000));
    const TemporaryFolder folder;
    ToolRun run(flash(join(slowSecondChunk, {"--flash-dir", folder.getPath()}), {"--main", main.getPath(), "--yes"}));
    run.awaitOutput(" bytes, main image, ");
    run.sendSignalToTool(SIGHUP);
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(contentOf(folder / "panel0-main.bin"), main.read());
}

// With a hang-up ignored from the start, also once all is written and nothing would be lost.
TEST(PanelctlFlash, terminalThatHangsUpUnderNohup_doesNotEndTheWaitForAnAnswer)
{
    const TemporaryFile main(firmware(10));
    ToolRun run(join({"/bin/sh", "-c", "trap '' HUP; exec \"$@\"", "sh"},
                     flash(silentAfterOneChunk, {"--main", main.getPath(), "--yes", "--timeout", "3"})));
    run.awaitOutput("written ");
    run.sendSignalToTool(SIGHUP);
    EXPECT_EQ(run.finish(), 7);
    EXPECT_THAT(run.getOutput(), EndsWith(" s\nwaiting   for the panel to answer (3 s at most)\n"));
    EXPECT_THAT(run.getErrors(), HasSubstr("panelctl: the firmware is written, every chunk of it confirmed, but panel "
                                           "0101 (1-1) has not sent its device information since, for 3 s.\n"));
}

TEST(PanelctlFlash, readerThatHasGone_doesNotEndItNorChangesTheExitCode)
{
    const TemporaryFile main(firmware(10000));
    const TemporaryFolder folder;
    ToolRun run(flash(join(slowSecondChunk, {"--flash-dir", folder.getPath()}), {"--main", main.getPath(), "--yes"}));
    run.awaitOutput(" bytes, main image, ");
    run.closeOutput();
    EXPECT_EQ(run.finish(), 0);
    EXPECT_THAT(run.getErrors(), HasSubstr(unreadOutput));
    EXPECT_EQ(contentOf(folder / "panel0-main.bin"), main.read());
}

// Before the first line.
TEST(PanelctlFlash, readerThatWasNeverThere_doesNotEndItEither)
{
    const TemporaryFile main(firmware(10));
    const TemporaryFolder folder;
    ToolRun run(flash({"--flash-dir", folder.getPath()}, {"--main", main.getPath(), "--yes"}));
    run.closeOutput();
    EXPECT_EQ(run.finish(), 0);
    EXPECT_THAT(run.getErrors(), HasSubstr(unreadOutput));
    EXPECT_EQ(contentOf(folder / "panel0-main.bin"), main.read());
}

TEST(PanelctlFlash, nobodyToAskNorToRead_isSaidAndNothingSent)
{
    const TemporaryFile main(firmware(10));
    ToolRun run(flash({}, {"--main", main.getPath()}));
    run.closeOutput();
    EXPECT_EQ(run.finish(), 2);
    EXPECT_THAT(run.getErrors(), HasSubstr(" Nothing was sent.\n"));
}

TEST(PanelctlFlash, onATerminal_asksAndDrawsABarThatGoesAway)
{
    const TemporaryFile main(firmware(20000));
    ToolRun run(flash({}, {"--main", main.getPath()}), ToolRun::Terminal{70});
    run.awaitOutput("Write this, and leave the panel plugged in meanwhile? [y/N] ");
    run.type("y\n");
    run.awaitOutput("\r\x1b[Kmain    0 % [--------------------]     0 of 20000 bytes,  0.0 KiB/s");
    run.sendSignalToTool(SIGINT);
    EXPECT_EQ(run.finish(), 0);
    const std::string screen = screenOf(run.getOutput(), 70);
    EXPECT_THAT(screen, ContainsRegex("meanwhile\\? \\[y/N\\] y\n"
                                      "panelctl: interrupted, but panel 0101 \\(1-1\\) would be left half written\n"
                                      ": the upgrade goes on\\.\n"
                                      "  Press Ctrl-C once more to leave all the same\\.\n"
                                      "written   20000 bytes, each chunk confirmed, in [0-9]+\\.[0-9] s\n"
                                      "waiting   for the panel to answer \\(30 s at most\\)\n"
                                      "answers   yes\n"));
    EXPECT_THAT(screen, Not(HasSubstr(" %")));
}

// What the library prints itself would break the bar.
TEST(PanelctlFlash, detailedLog_hasLinesInPlaceOfTheBar)
{
    const TemporaryFile main(firmware(10));
    ToolRun run(flash({}, {"--main", main.getPath(), "--yes", "--log-level", "4"}), ToolRun::Terminal{80});
    EXPECT_EQ(run.finish(), 0);
    EXPECT_THAT(run.getOutput(), HasSubstr("\n100 %  10 of 10 bytes, main image, "));
    EXPECT_THAT(run.getOutput(), HasSubstr("[libusb] Finished!\r\n"));
    EXPECT_THAT(run.getOutput(), Not(HasSubstr("\x1b")));
}

TEST(PanelctlFlash, anythingButYes_sendsNothing)
{
    const TemporaryFile main(firmware(10));
    const TemporaryFile log;
    for (const std::string answer : {"\n", "n\n", "yep\n", "\x04"}) {
        ToolRun run(flash({"--log", log.getPath()}, {"--main", main.getPath()}), ToolRun::Terminal{80});
        run.awaitOutput("[y/N] ");
        run.type(answer);
        EXPECT_EQ(run.finish(), 1);
        EXPECT_THAT(run.getOutput(), HasSubstr("\r\npanelctl: not confirmed: nothing was sent.\r\n"));
        EXPECT_FALSE(isFirmwareRecorded(log));
    }
}

TEST(PanelctlFlash, interruptAtTheQuestion_leavesAtOnce)
{
    const TemporaryFile main(firmware(10));
    ToolRun run(flash({}, {"--main", main.getPath()}), ToolRun::Terminal{80});
    run.awaitOutput("[y/N] ");
    run.sendSignalToTool(SIGINT);
    EXPECT_EQ(run.finish(), 130);
    EXPECT_THAT(run.getOutput(), EndsWith("[y/N] \r\npanelctl: interrupted: nothing was sent.\r\n"));
}

TEST(PanelctlFlash, interruptBeforeTheQuestion_saysThatNothingWasSent)
{
    const TemporaryFile main(firmware(10));
    const TemporaryFile log;
    ToolRun run(panelctlOn({"--log", log.getPath(), "--at", "0s", "fault out silent sticky"},
                           {"flash", "--main", main.getPath(), "--yes"}));
    run.awaitFile(log.getPath(), "claim");
    run.sendSignalToTool(SIGTERM);
    EXPECT_EQ(run.finish(), 143);
    EXPECT_THAT(run.getErrors(), HasSubstr("panelctl: interrupted: nothing was sent.\n"));
}

// Of three seconds without a word none is shown: a healthy upgrade has such. Records 0 and 1
// are the request and the first chunk.
TEST(PanelctlFlash, panelThatStopsReplying_isShownInTheBarThenStuck)
{
    const TemporaryFile main(firmware(10000));
    ToolRun run(flash({"--at", "0s", "fault boot ignore skip=2 sticky"},
                      {"--main", main.getPath(), "--yes", "--timeout", "4.5", "--log-level", "0"}),
                ToolRun::Terminal{80});
    run.awaitOutput(" 4096 of 10000 bytes, no reply for 4 s");
    EXPECT_THAT(run.getOutput(), Not(HasSubstr("no reply for 3 s")));
    EXPECT_EQ(run.finish(), 6);
    EXPECT_THAT(run.getOutput(),
                ContainsRegex("panelctl: panel 0101 \\(1-1\\) has made no progress for 4.5 s: it had "
                              "confirmed 4096 of 10000 bytes of the main image\\.\r\n"
                              "  It takes what is sent \\(endpoint 0x02, [0-9]+ bytes since\\) but does "
                              "not reply \\(endpoint 0x81\\)\\.\r\n"));
}

TEST(PanelctlFlash, fileChangedAtTheQuestion_isRefused)
{
    const TemporaryFile main(firmware(10));
    const TemporaryFile log;
    ToolRun run(flash({"--log", log.getPath()}, {"--main", main.getPath()}), ToolRun::Terminal{200});
    run.awaitOutput("[y/N] ");
    main.write(std::string("new"));
    run.type("yes\n");
    EXPECT_EQ(run.finish(), 2);
    EXPECT_THAT(run.getOutput(), HasSubstr("' has changed since it was checked. Nothing was sent.\r\n"));
    EXPECT_FALSE(isFirmwareRecorded(log));
}

TEST(PanelctlFlash, panelGoneAtTheQuestion_isSaid)
{
    const TemporaryFile main(firmware(10));
    ToolRun run(flash({"--at", "1s", "unplug"}, {"--main", main.getPath(), "--log-level", "0"}), ToolRun::Terminal{80});
    run.awaitOutput("[y/N] ");
    run.let(std::chrono::milliseconds(1300));
    run.type("y\n");
    EXPECT_EQ(run.finish(), 4);
    EXPECT_THAT(run.getOutput(), HasSubstr("went away: it was unplugged. Nothing was sent.\r\n"));
}

} // namespace Vantor
