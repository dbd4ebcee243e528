#include "panelctl/session/UsbIds.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ToolRun.h"

#include <csignal>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// Refused before the library was used: it would print at this level.
void expectRefusal(ToolRun::Arguments arguments, const std::string& message, int exitCode = 2)
{
    arguments.emplace_back("--log-level=5");
    const ToolResult result = runTool(panelctl(arguments));
    EXPECT_EQ(result.exitCode, exitCode);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, message);
}

} // namespace

TEST(PanelctlArguments, noCommand_isRefused)
{
    expectRefusal({}, "panelctl: no command given: there are list, info, watch, stats, send, draw, flash and doctor.\n"
                      "  `panelctl --help` shows what there is.\n");
}

TEST(PanelctlArguments, unknownCommand_isRefused)
{
    expectRefusal({"fly"},
                  "panelctl: 'fly' is no command: there are list, info, watch, stats, send, draw, flash and doctor.\n"
                  "  `panelctl --help` shows what there is.\n");
}

TEST(PanelctlArguments, unknownOption_isRefused)
{
    expectRefusal({"list", "--fast"}, "panelctl: '--fast' was not expected.\n"
                                      "  `panelctl list --help` shows what there is.\n");
}

TEST(PanelctlArguments, argumentTooMany_isRefused)
{
    expectRefusal({"list", "fly", "high"}, "panelctl: 'fly' was not expected.\n"
                                           "  `panelctl list --help` shows what there is.\n");
}

TEST(PanelctlArguments, optionBehindTheMark_isNone)
{
    for (const char* const command : {"watch", "list"}) {
        const ToolResult result = runTool(panelctl({"--log-level=5", command, "--", "--json"}));
        EXPECT_EQ(result.exitCode, 2);
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.errors, HasSubstr("panelctl: '--json' was not expected.\n"));
    }
    const ToolResult result = runTool(panelctl({"info", "0101", "--", "--json"}));
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.errors, HasSubstr("panelctl: '--json' was not expected.\n"));
}

// A file may be called as an option is.
TEST(PanelctlArguments, wordBehindTheMark_isTaken)
{
    const ToolResult result = runTool(panelctl({"draw", "--lcd", "1", "--", "--json"}));
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.errors, HasSubstr("'--json' can't be read: No such file or directory"));
}

TEST(PanelctlArguments, emptyValue_isNotTakenFromTheNextArgument)
{
    const std::string rest = " has no value. Write it behind the '=', or in place of the '=' as the next argument: '' "
                             "if it is empty.\n";
    const std::string hint = "  `panelctl --help` shows what there is.\n";
    expectRefusal({"--timeout=", "list"}, "panelctl: '--timeout='" + rest + hint);
    expectRefusal({"list", "--timeout="}, "panelctl: '--timeout='" + rest + hint);
    expectRefusal({"--timeout", "1", "send", "--type", "5", "--hex="},
                  "panelctl: '--hex='" + rest + "  `panelctl send --help` shows what there is.\n");
}

// Whole characters, here of two bytes; what a terminal would obey is a question mark.
TEST(PanelctlArguments, quotedText_is80PrintableCharacters)
{
    const std::string hint = "\n  `panelctl --help` shows what there is.\n";
    std::string long81;
    std::string long80;
    for (int i = 0; i < 81; ++i)
        long81 += "\u00e4";
    for (int i = 0; i < 80; ++i)
        long80 += "\u00e4";
    const std::string commands = " is no command: there are list, info, watch, stats, send, draw, flash and doctor.";
    expectRefusal({long80}, "panelctl: '" + long80 + "'" + commands + hint);
    expectRefusal({long81}, "panelctl: '" + long80 + "...'" + commands + hint);
    expectRefusal({"a\x1b[2J\n-\x7f-\xc2-\x9b-\xc2\x9bz"}, "panelctl: 'a?[2J?-?-?-?-??z'" + commands + hint);
    expectRefusal({"\xff-\xc3"}, "panelctl: '?-?'" + commands + hint);
    expectRefusal({"list", "--timeout=\x1b" + long81}, "panelctl: --timeout: '?" + long80.substr(2) +
                                                           "...' is not a time in seconds, from 0.001 to 86400." +
                                                           hint);
    expectRefusal({"draw", "/\x1b" + std::string(100, 'a'), "--lcd", "0"},
                  "panelctl: '/?" + std::string(78, 'a') + "...' can't be read: No such file or directory.\n");
    expectRefusal({"send", "--type", "5", "--file", "/\x1b" + std::string(100, 'a')},
                  "panelctl: --file: '/?" + std::string(78, 'a') + "...' can't be read: No such file or directory.\n");
    expectRefusal({"flash", "--main", "/\x1b" + std::string(100, 'a')},
                  "panelctl: --main: '/?" + std::string(78, 'a') + "...' can't be read: No such file or directory.\n");
    const ToolResult flag = runTool(panelctl({"draw", "a.png", "--lcd=0", "--invert=" + std::string(100, 'a')}));
    EXPECT_EQ(flag.errors, "panelctl: Could not convert: --invert = " + std::string(50, 'a') +
                               "....\n  `panelctl draw --help` shows what there is.\n");
}

TEST(PanelctlArguments, typeOutside0To46_isRefused)
{
    for (const std::string type : {"47", "-1", "x", "05", "99999999999999999999"})
        expectRefusal({"send", "--type=" + type, "--hex", "00"}, "panelctl: --type: '" + type +
                                                                     "' is not a record type, 0 to 46.\n"
                                                                     "  `panelctl send --help` shows what there is.\n");
}

TEST(PanelctlArguments, noType_isRefused)
{
    expectRefusal({"send", "--hex", "00"}, "panelctl: --type is required.\n"
                                           "  `panelctl send --help` shows what there is.\n");
}

TEST(PanelctlArguments, keyAbove32Bits_isRefused)
{
    expectRefusal({"send", "--type", "3", "--hex", "00", "--key", "4294967296"},
                  "panelctl: --key: '4294967296' is not a key, 0 to 4294967295.\n"
                  "  `panelctl send --help` shows what there is.\n");
}

TEST(PanelctlArguments, noPayload_isRefused)
{
    expectRefusal({"send", "--type", "3"}, "panelctl: send: give the record's payload with either --hex or --file.\n");
}

TEST(PanelctlArguments, twoPayloads_areRefused)
{
    expectRefusal({"send", "--type", "3", "--hex", "00", "--file", "/dev/null"},
                  "panelctl: send: give the record's payload with either --hex or --file.\n");
}

// Also where another group would make the number even: nothing says which byte is meant.
TEST(PanelctlArguments, oddNumberOfDigits_isRefused)
{
    const std::string rest = " has an odd number of digits: one byte is only half there.\n"
                             "  Give two digits a byte, as in 0a rather than a.\n";
    expectRefusal({"send", "--type", "3", "--hex", "de a"}, "panelctl: --hex: 'a' at position 4" + rest);
    expectRefusal({"send", "--type", "3", "--hex", "d:e"}, "panelctl: --hex: 'd' at position 1" + rest);
    expectRefusal({"send", "--type", "3", "--hex", "00 0xabc 1"}, "panelctl: --hex: '0xabc' at position 4" + rest);
    expectRefusal({"send", "--type", "3", "--hex", std::string(81, '1')},
                  "panelctl: --hex: '" + std::string(80, '1') + "...' at position 1" + rest);
}

TEST(PanelctlArguments, badDigit_isPointedAt)
{
    const std::string rest = " is not a hexadecimal digit.\n"
                             "  Give two digits a byte: 'de ad 00 01', de:ad:00:01 or 0xdead0001.\n";
    expectRefusal({"send", "--type", "3", "--hex", "000x"}, "panelctl: --hex: 'x' at position 4" + rest);
    expectRefusal({"send", "--type", "3", "--hex", "00 0x"}, "panelctl: --hex: 'x' at position 5" + rest);
    expectRefusal({"send", "--type", "3", "--hex", "0x0x00"}, "panelctl: --hex: 'x' at position 4" + rest);
    expectRefusal({"send", "--type", "3", "--hex", "00\n"}, "panelctl: --hex: byte 0x0a at position 3" + rest);
}

TEST(PanelctlArguments, missingFile_isRefusedWithTheReason)
{
    expectRefusal({"send", "--type", "3", "--file", "/nonexistent/record"},
                  "panelctl: --file: '/nonexistent/record' can't be read: No such file or directory.\n");
}

// A read that a signal only restarts would go on until the end of the input.
TEST(PanelctlArguments, interruptedReading_ends)
{
    ToolRun run(panelctl({"send", "--type", "3", "--file", "-"}), ToolRun::Terminal{80});
    run.let(std::chrono::seconds(1));
    run.sendSignal(SIGTERM);
    EXPECT_EQ(run.finish(), 143);
    EXPECT_EQ(run.getOutput(), "panelctl: interrupted\r\n");
}

TEST(PanelctlArguments, closedStandardInput_isRefusedWithTheReason)
{
    const ToolResult result =
        runTool({"/bin/sh", "-c", std::string("'") + MORVANE_PANELCTL + "' send --type 3 --file - <&-"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.errors, "panelctl: --file: standard input can't be read: Bad file descriptor.\n");
}

TEST(PanelctlArguments, directoryAsFile_isRefusedWithTheReason)
{
    expectRefusal({"send", "--type", "3", "--file", "/tmp"},
                  "panelctl: --file: '/tmp' can't be read: Is a directory.\n");
}

// 65,535 bytes of a packet less 8 and 3 of its headers; refused as a record, like one that is too
// large for the panel at hand.
TEST(PanelctlArguments, fileBeyond65524Bytes_isRefused)
{
    const auto refusal = [](const std::string& path) {
        return "panelctl: the record is too large for any panel: '" + path +
               "' is longer than 65524 bytes, the largest payload that fits a packet.\n"
               "  It was not queued. Send it in smaller records.\n";
    };
    const TemporaryFile payload(std::string(65525, 'x'));
    expectRefusal({"send", "--type", "3", "--file", payload.getPath()}, refusal(payload.getPath()), 1);
    expectRefusal({"send", "--type", "3", "--file", "/dev/zero"}, refusal("/dev/zero"), 1);
}

TEST(PanelctlArguments, logLevelOutside0To5_isRefused)
{
    const ToolResult result = runTool(panelctl({"list", "--log-level", "6"}));
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.errors, "panelctl: --log-level: '6' is not a log level, 0 to 5.\n"
                             "  `panelctl --help` shows what there is.\n");
}

// A wait for nothing would end in a complaint about the panel.
TEST(PanelctlArguments, timeThatIsNone_isRefused)
{
    for (const std::string time : {"-1", "soon", "nan", "inf", "1e9", "0", "0.0009"})
        expectRefusal({"list", "--timeout=" + time}, "panelctl: --timeout: '" + time +
                                                         "' is not a time in seconds, from 0.001 to 86400.\n"
                                                         "  `panelctl --help` shows what there is.\n");
    expectRefusal({"watch", "--duration=-1"}, "panelctl: --duration: '-1' is not a time in seconds, from 0 to 86400.\n"
                                              "  `panelctl watch --help` shows what there is.\n");
}

TEST(PanelctlArguments, countOfZero_isRefused)
{
    const ToolResult result = runTool(panelctl({"watch", "--count", "0"}));
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.errors, HasSubstr("panelctl: --count: '0' is not a number of packets, 1 to "));
}

TEST(PanelctlArguments, listOfTypesThatAreNone_isRefused)
{
    for (const std::string types : {"256", "5,", ",5", "5,,6", "5 ,6", "Information"})
        expectRefusal({"watch", "--type=" + types},
                      "panelctl: --type: '" + types +
                          "' is not a list of types, each 0 to 255 or one of DeviceInformation, LcdSlice, "
                          "FirmwareUpgradeCommand, EncodedLcdSlice.\n"
                          "  `panelctl watch --help` shows what there is.\n");
}

TEST(PanelctlArguments, drawWithoutLcd_isRefused)
{
    expectRefusal({"draw", "a.png"}, "panelctl: --lcd is required.\n"
                                     "  `panelctl draw --help` shows what there is.\n");
}

TEST(PanelctlArguments, drawWithoutImage_isRefused)
{
    expectRefusal({"draw", "--lcd", "0"}, "panelctl: IMAGE is required.\n"
                                          "  `panelctl draw --help` shows what there is.\n");
}

TEST(PanelctlArguments, lcdOutside16Bits_isRefused)
{
    for (const std::string lcd : {"65536", "-1", "x", "01"})
        expectRefusal({"draw", "a.png", "--lcd=" + lcd}, "panelctl: --lcd: '" + lcd +
                                                             "' is not an LCD, 0 to 65535.\n"
                                                             "  `panelctl draw --help` shows what there is.\n");
}

TEST(PanelctlArguments, sizeThatIsNone_isRefused)
{
    for (const std::string size : {"0x1", "1x0", "256x1", "1x256", "12", "12x", "x12", "1x2x3", "1X2", "1,2", " 1x2"})
        expectRefusal({"draw", "a.png", "--lcd=0", "--size=" + size},
                      "panelctl: --size: '" + size +
                          "' is not a size, 1x1 to 255x255.\n"
                          "  `panelctl draw --help` shows what there is.\n");
}

TEST(PanelctlArguments, positionThatIsNone_isRefused)
{
    for (const std::string position : {"-1,0", "256,0", "0,256", "1", "1,", "1x2", "1,2,3"})
        expectRefusal({"draw", "a.png", "--lcd=0", "--at=" + position},
                      "panelctl: --at: '" + position +
                          "' is not a position, 0,0 to 255,255.\n"
                          "  `panelctl draw --help` shows what there is.\n");
}

TEST(PanelctlArguments, unknownDithering_isRefused)
{
    expectRefusal({"draw", "a.png", "--lcd=0", "--dither=Atkinson"},
                  "panelctl: --dither: 'Atkinson' is not threshold, atkinson, floyd-steinberg or stucki.\n"
                  "  `panelctl draw --help` shows what there is.\n");
}

TEST(PanelctlArguments, thresholdThatIsNoShade_isRefused)
{
    expectRefusal({"draw", "a.png", "--lcd=0", "--threshold=256"},
                  "panelctl: --threshold: '256' is not a threshold, 0 to 255.\n"
                  "  `panelctl draw --help` shows what there is.\n");
}

TEST(PanelctlArguments, rowsBeyond255_areRefused)
{
    expectRefusal({"draw", "a.png", "--lcd=0", "--size=8x100", "--at=0,157"},
                  "panelctl: draw: 100 rows from row 157 on reach past row 255, the last one that an LCD can have.\n"
                  "  Make it lower with --size, or place it higher with --at.\n");
}

TEST(PanelctlArguments, fileThatIsNoPng_isRefused)
{
    expectRefusal({"draw", "/nonexistent/a.png", "--lcd=0"},
                  "panelctl: '/nonexistent/a.png' can't be read: No such file or directory.\n");
    expectRefusal({"draw", "/dev/null", "--lcd=0"}, "panelctl: '/dev/null' is not a PNG file.\n");
}

TEST(PanelctlArguments, helpOfDraw_saysHowInEightyColumns)
{
    const ToolResult result = runTool(panelctl({"draw", "--help"}));
    EXPECT_EQ(result.exitCode, 0);
    for (const char* const text :
         {"draw [OPTIONS] IMAGE", "--lcd L", "--panel", "--size WxH", "--at X,Y", "--dither HOW", "--threshold 0..255",
          "--invert", "--encoded", "(299 R + 587 G + 114 B + 500) / 1000"})
        EXPECT_THAT(result.output, HasSubstr(text));
    EXPECT_THAT(result.output, Not(::testing::ContainsRegex("[^\n]{81}")));
}

TEST(PanelctlArguments, flashWithoutAFile_isRefused)
{
    expectRefusal({"flash"}, "panelctl: flash: name the firmware with --main, --servo or both.\n");
}

TEST(PanelctlArguments, firmwareThatIsNone_isRefused)
{
    const TemporaryFile empty;
    const TemporaryFile good("x");
    expectRefusal({"flash", "--main", "/nonexistent/main.bin"},
                  "panelctl: --main: '/nonexistent/main.bin' can't be read: No such file or directory.\n");
    expectRefusal({"flash", "--main", good.getPath(), "--servo", "/tmp"},
                  "panelctl: --servo: '/tmp' is a directory. Name the firmware image itself.\n");
    expectRefusal({"flash", "--servo", empty.getPath()},
                  "panelctl: --servo: '" + empty.getPath() + "' is empty: there is nothing to write.\n");
    expectRefusal({"flash", "--servo", ""}, "panelctl: --servo: the name is empty.\n");
}

TEST(PanelctlArguments, optionGivenAgain_isNamed)
{
    expectRefusal({"flash", "--main", "a", "--main", "b"},
                  "panelctl: --main was given twice.\n  `panelctl flash --help` shows what there is.\n");
    expectRefusal({"list", "--timeout=1", "--timeout=2", "--timeout=3"},
                  "panelctl: --timeout was given 3 times.\n  `panelctl --help` shows what there is.\n");
}

TEST(PanelctlArguments, timeoutThatNoUpgradeKeeps_isRefused)
{
    const TemporaryFile good("x");
    expectRefusal(
        {"flash", "--main", good.getPath(), "--timeout", "2.9"},
        "panelctl: flash: --timeout: less than 3 s may end a healthy upgrade: a panel may have to erase for a "
        "chunk.\n");
}

TEST(PanelctlArguments, helpOfFlash_hasItsExitCodesInEightyColumns)
{
    const ToolResult result = runTool(panelctl({"flash", "--help"}));
    EXPECT_EQ(result.exitCode, 0);
    for (const char* const text : {"--main FILE", "--servo FILE", "--panel", "--yes", "\n  0 ", "\n  1 ", "\n  2 ",
                                   "\n  3 ", "\n  4 ", "\n  5 ", "\n  6 ", "\n  7 ", "\n  130 "})
        EXPECT_THAT(result.output, HasSubstr(text));
    EXPECT_THAT(result.output, Not(::testing::ContainsRegex("[^\n]{81}")));
}

TEST(PanelctlArguments, version_namesToolLibraryAndPanels)
{
    const ToolResult result = runTool(panelctl({"--version"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output,
              "panelctl 1.2.1\nlibMorvaneHostUsb 1.2.1+\npanels " + UsbIds::join(UsbIds::list(), ", ") + "\n");
    EXPECT_EQ(result.errors, "");
}

TEST(PanelctlArguments, help_hasEveryCommandAndExitCodeIn80Columns)
{
    const ToolResult result = runTool(panelctl({"--help"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors, "");
    for (const char* const text :
         {"list ",  "info ",  "watch ", "stats ", "send ",  "draw ",  "flash ", "--version", "--log-level", "--timeout",
          "--json", "\n  0 ", "\n  1 ", "\n  2 ", "\n  3 ", "\n  4 ", "\n  5 ", "\n  6 ",    "\n  7 ",      "\n  130 "})
        EXPECT_THAT(result.output, HasSubstr(text));
    EXPECT_THAT(result.output, HasSubstr("3 summaries, 4 device life, threads and firmware,\n"));
    EXPECT_THAT(result.output, Not(::testing::ContainsRegex("[^\n]{81}")));
}

TEST(PanelctlArguments, helpOfList_hasItsExitCodes)
{
    const ToolResult result = runTool(panelctl({"list", "--help"}));
    EXPECT_THAT(result.output, HasSubstr("0 also when a panel gave no information; 1 when one can't be used"));
}

TEST(PanelctlArguments, helpOfACommand_hasItsOptions)
{
    const ToolResult result = runTool(panelctl({"send", "--help"}));
    EXPECT_EQ(result.exitCode, 0);
    for (const char* const text : {"--type 0..46", "--key N", "--hex DIGITS", "--file FILE", "--panel", "--repeat"})
        EXPECT_THAT(result.output, HasSubstr(text));
}

TEST(PanelctlArguments, outputThatCannotBeWritten_isAnError)
{
    const std::string tool = MORVANE_PANELCTL;
    const ToolResult full = runTool({"/bin/sh", "-c", "'" + tool + "' --version > /dev/full"});
    EXPECT_EQ(full.exitCode, 1);
    EXPECT_EQ(full.errors, "panelctl: standard output can't be written: No space left on device.\n");
    const ToolResult closed = runTool({"/bin/sh", "-c", "'" + tool + "' --version >&-"});
    EXPECT_EQ(closed.exitCode, 1);
    EXPECT_EQ(closed.errors, "panelctl: standard output can't be written: Bad file descriptor.\n");
}

} // namespace Vantor
