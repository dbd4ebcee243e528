// What panelsim makes of its command line, and what it says of one that it refuses.
#include "simulator/panelsim/PanelsimOptions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

struct Parsed : PanelsimArguments {
    std::string output; // with the errors
};

Parsed parse(std::vector<std::string> words)
{
    words.insert(words.begin(), "panelsim");
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const PanelsimArguments result = parsePanelsimArguments(static_cast<int>(arguments.size()), arguments.data());
    return {result, testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr()};
}

// What it says.
std::string refusalOf(const std::vector<std::string>& words)
{
    const Parsed parsed = parse(words);
    EXPECT_FALSE(parsed.run);
    EXPECT_EQ(parsed.exitCode, 125) << parsed.output;
    return parsed.output;
}

TEST(PanelsimOptions, wrongUsage_isRefusedAndSaysWhy)
{
    EXPECT_NE(refusalOf({"run", "--panels", "32", "--", "true"}), "");
    EXPECT_THAT(refusalOf({"run", "--at", "soon", "unplug", "--", "true"}), HasSubstr("soon"));
    EXPECT_THAT(refusalOf({"run", "--at", "1s", "explode", "--", "true"}), HasSubstr("explode"));
    EXPECT_NE(refusalOf({"run", "--at", "1s", "plug 31", "--", "true"}), "");
    for (const char* const option : {"--seed", "--max-packet", "--panels"})
        EXPECT_THAT(refusalOf({"run", option, "-1", "--", "true"}), HasSubstr("expected a number from 0, found '-1'"));
    for (const char* const option : {"--png", "--log", "--flash-dir", "--record", "--script", "--control"})
        EXPECT_THAT(refusalOf({"run", option, "", "--", "true"}), HasSubstr("needs a name"));
    EXPECT_THAT(refusalOf({"run", "--record", "-", "--", "true"}), HasSubstr("needs the name of a file"));
    EXPECT_NE(refusalOf({"attach", "--panels", "32"}), "");
    EXPECT_NE(refusalOf({"attach", "--at", "1s", "explode"}), "");
    EXPECT_NE(refusalOf({"attach", "--", "true"}), ""); // it runs no program
}

TEST(PanelsimOptions, wrongUsage_namesTheWord)
{
    const std::string hint = "\nRun with --help for more information.\n";
    EXPECT_EQ(refusalOf({}), "panelsim: A subcommand is required" + hint);
    EXPECT_EQ(refusalOf({"bogus", "--panels", "2"}),
              "panelsim: 'bogus' is no subcommand: there are run, attach and tell" + hint);
    EXPECT_EQ(refusalOf({"--bogus"}), "panelsim: '--bogus' was not expected" + hint);
    EXPECT_EQ(refusalOf({"run", "--bogus", "--", "true"}), "panelsim: '--bogus' was not expected" + hint);
    EXPECT_EQ(refusalOf({"run", "--panel", "2", "--", "true"}), "panelsim: '--panel' was not expected" + hint);
    EXPECT_EQ(refusalOf({"run", "-x"}), "panelsim: '-x' was not expected" + hint);
    EXPECT_EQ(refusalOf({"run"}), "panelsim: PROGRAM is required" + hint);
    EXPECT_EQ(refusalOf({"attach", "x"}), "panelsim: 'x' was not expected" + hint);
    EXPECT_EQ(refusalOf({"run", "--max-packet", "65536", "--", "true"}),
              "panelsim: --max-packet: Value 65536 not in range 0 to 65535" + hint);
    EXPECT_EQ(parse({"run", "--max-packet", "65535", "--", "true"}).options.maxPacketSize, 65535);
}

TEST(PanelsimOptions, id_isTwoHexadecimalNumbers)
{
    const PanelsimOptions given = parse({"attach", "--id", "1A2b:0c0D"}).options;
    EXPECT_EQ(given.vendorId, 0x1A2B);
    EXPECT_EQ(given.productId, 0x0C0D);
    EXPECT_EQ(parse({"attach"}).options.vendorId, 0xDEAD);
    EXPECT_EQ(parse({"attach"}).options.productId, 0xBEEF);
    for (const char* const id :
         {"", "dead", "dead:bee", "dead:beef0", "deadbeef0", "dead:beeg", ":deadbeef", "0xde:beef"})
        EXPECT_THAT(refusalOf({"attach", "--id", id}), HasSubstr("expected VVVV:PPPP in hexadecimal, found '")) << id;
}

TEST(PanelsimOptions, kernelDriver_isAFileName)
{
    EXPECT_EQ(parse({"run", "--kernel-driver", "usbhid", "--", "true"}).options.kernelDriver, "usbhid");
    for (const std::string& name : {std::string(), std::string("a/b"), std::string("a\nb"), std::string(64, 'x')})
        EXPECT_THAT(refusalOf({"run", "--kernel-driver", name, "--", "true"}), HasSubstr("needs a driver's name"));
}

TEST(PanelsimOptions, absurdLcds_areRefused)
{
    EXPECT_THAT(refusalOf({"run", "--lcd", "1=8x511", "--", "true"}),
                HasSubstr("--lcd: an LCD is 1x1 to 510x510 pixels, found '8x511'"));
    EXPECT_THAT(refusalOf({"run", "--lcd", "1=8x2", "--lcd", "1=8x3", "--", "true"}),
                HasSubstr("--lcd: LCD 1 is given twice"));
}

TEST(PanelsimOptions, refusals_quoteAtMost80Characters)
{
    const std::string text = "\x1B[31m" + std::string(200, 'x');
    const std::string shown = "?[31m" + std::string(75, 'x') + "...";
    const std::vector<std::vector<std::string>> usages = {
        {"run", "--at", text, "plug", "--", "true"},       {"run", "--at", "1s", text, "--", "true"},
        {"run", "--at", "1s", "plug", text, "--", "true"}, {"run", "--panels", text, "--", "true"},
        {"run", "--seed=" + text, "--", "true"},           {"run", "--lcd", text, "--", "true"},
        {"run", "--chunk-time", text, "--", "true"},       {"run", "--id", text, "--", "true"}};
    for (const auto& usage : usages) {
        const std::string refusal = refusalOf(usage);
        EXPECT_THAT(refusal, Not(HasSubstr("\x1B")));
        EXPECT_THAT(refusal, Not(HasSubstr(std::string(81, 'x'))));
        EXPECT_THAT(refusal, HasSubstr("?[31m"));
    }
    EXPECT_THAT(refusalOf({"run", "--at", text, "plug", "--", "true"}), HasSubstr("found \"" + shown + "\""));
}

TEST(PanelsimOptions, captures_areReplayedAndExpected)
{
    const Parsed parsed = parse({"run", "--replay", "a", "--fast", "--expect", "b", "--whole-order", "--ignore-type",
                                 "5", "--ignore-type", "255", "--", "true"});
    EXPECT_TRUE(parsed.run);
    EXPECT_EQ(parsed.options.replayFile, "a");
    EXPECT_TRUE(parsed.options.fast);
    EXPECT_EQ(parsed.options.expectFile, "b");
    EXPECT_TRUE(parsed.options.wholeOrder);
    EXPECT_THAT(parsed.options.ignoredTypes, ElementsAre(static_cast<PacketType>(5), static_cast<PacketType>(255)));
    EXPECT_THAT(parse({"run", "--replay", "a", "--ignore-type", "5", "echo"}).options.program, ElementsAre("echo"));
}

TEST(PanelsimOptions, capturesThatContradictOtherOptions_areRefused)
{
    for (const char* const option : {"--panels", "--seed", "--max-packet", "--chunk-time", "--flash-dir"})
        EXPECT_THAT(refusalOf({"run", "--replay", "a", option, "1", "--", "true"}), HasSubstr("excludes"));
    EXPECT_THAT(refusalOf({"run", "--fast", "--", "true"}), HasSubstr("--fast requires --replay"));
    EXPECT_THAT(refusalOf({"run", "--replay", "a", "--whole-order", "--", "true"}),
                HasSubstr("--whole-order requires --expect"));
    EXPECT_THAT(refusalOf({"run", "--ignore-type", "5", "--", "true"}),
                HasSubstr("--ignore-type requires --replay or --expect"));
    EXPECT_NE(refusalOf({"run", "--expect", "a", "--ignore-type", "256", "--", "true"}), "");
    EXPECT_NE(refusalOf({"run", "--expect", "a", "--ignore-type", "-1", "--", "true"}), "");
    EXPECT_THAT(refusalOf({"run", "--replay", "", "--", "true"}), HasSubstr("needs a name"));
    EXPECT_THAT(refusalOf({"run", "--expect", "", "--", "true"}), HasSubstr("needs a name"));
    EXPECT_NE(refusalOf({"attach", "--replay", "a"}), "");
}

TEST(PanelsimOptions, helpAndVersion_areAnswered)
{
    EXPECT_EQ(parse({"--version"}).output, "panelsim 1.2.1\n");
    const Parsed help = parse({"run", "--help"});
    EXPECT_EQ(help.exitCode, 0);
    for (const char* const text : {"--no-scatter-gather", "120", "121", "difference: panel 0", "--at TIME 'COMMAND'",
                                   "a plain number is seconds", "once is the default", "EREMOTEIO", "use 1100"})
        EXPECT_THAT(help.output, HasSubstr(text));
    const Parsed attachHelp = parse({"attach", "--help"});
    EXPECT_EQ(attachHelp.exitCode, 0);
    EXPECT_THAT(attachHelp.output, HasSubstr("modprobe vhci-hcd"));
    for (const Parsed& either : {help, attachHelp})
        for (const char* const text : {"--script FILE", "+0.5s  plug 1", "--control PATH"})
            EXPECT_THAT(either.output, HasSubstr(text));
    EXPECT_THAT(parse({"tell", "--help"}).output, HasSubstr("$PANELSIM_CONTROL"));
}

TEST(PanelsimOptions, tell_takesCommandsOrInput)
{
    const PanelsimOptions options = parse({"tell", "--to", "/run/x", "unplug 1", "fault in stall", "quit"}).options;
    EXPECT_EQ(options.subcommand, PanelsimOptions::Subcommand::Tell);
    EXPECT_EQ(options.controlPath, "/run/x");
    EXPECT_THAT(options.commands, ElementsAre("unplug 1", "fault in stall", "quit"));
    EXPECT_FALSE(options.fromInput);
    EXPECT_TRUE(parse({"tell", "-"}).options.fromInput);
    EXPECT_TRUE(parse({"tell", "--list"}).options.list);
}

// A part of what was meant must not be told.
TEST(PanelsimOptions, wrongCommandToTell_isRefusedBeforeAnyIsTold)
{
    const std::string hint = "\nRun with --help for more information.\n";
    EXPECT_EQ(refusalOf({"tell"}), "panelsim: COMMAND is required" + hint);
    EXPECT_EQ(refusalOf({"tell", "--list", "unplug"}), "panelsim: --list excludes COMMAND" + hint);
    EXPECT_EQ(refusalOf({"tell", "plug", "explode"}),
              "panelsim: 'explode': expected plug, unplug, fault or emit, found \"explode\"" + hint);
    EXPECT_EQ(refusalOf({"tell", "unplug 31"}), "panelsim: 'unplug 31': panels are numbered 0 to 30" + hint);
    EXPECT_EQ(refusalOf({"tell", "plug\nunplug"}),
              "panelsim: 'plug?unplug': expected a panel's number or the end, found \"unplug\"" + hint);
    EXPECT_EQ(refusalOf({"tell", "unplug", "1"}), "panelsim: tell: quote COMMAND: 'unplug 1'" + hint);
    EXPECT_EQ(refusalOf({"tell", "fault", "1", "boot", "unplug"}),
              "panelsim: tell: quote COMMAND: 'fault 1 boot unplug'" + hint);
    EXPECT_NE(refusalOf({"tell", "-", "unplug"}), "");
    EXPECT_NE(refusalOf({"tell", ""}), "");
    EXPECT_THAT(refusalOf({"tell", "--to", "", "unplug"}), HasSubstr("needs a name"));
}

TEST(PanelsimOptions, unquotedCommand_isPointedAt)
{
    const std::string refusal = "panelsim: --at 2s: quote COMMAND: 'unplug 1'\nRun with --help for more information.\n";
    EXPECT_EQ(refusalOf({"run", "--at", "2s", "unplug", "1", "--", "sleep", "--duration", "6"}), refusal);
    EXPECT_EQ(refusalOf({"run", "--at", "2s", "unplug", "1", "--show", "true"}), refusal);
    EXPECT_EQ(refusalOf({"run", "--at", "2s", "unplug", "1", "true"}), refusal);
    EXPECT_EQ(refusalOf({"run", "--at", "1s", "emit", "0", "type=5", "--", "true"}),
              "panelsim: --at 1s: quote COMMAND: 'emit 0 type=5'\nRun with --help for more information.\n");
    EXPECT_THAT(parse({"run", "--at", "2s", "unplug", "true"}).options.program, ElementsAre("true"));
    EXPECT_THAT(parse({"run", "--at", "2s", "unplug 1", "--", "true"}).options.program, ElementsAre("true"));
    EXPECT_THAT(refusalOf({"run", "--web", "8080", "--", "true"}), HasSubstr("behind '=': --web=8080"));
    EXPECT_EQ(parse({"run", "--web", "--", "8080"}).options.webAddress, "");
    EXPECT_EQ(parse({"run", "--web=8080", "--", "true"}).options.webAddress, "8080");
    EXPECT_EQ(parse({"run", "--", "true", "--web", "8080"}).options.webAddress, std::nullopt);
    EXPECT_THAT(parse({"run", "--", "sh", "-c", "[ -e a ]", "[a,b]", "--", "-x"}).options.program,
                ElementsAre("sh", "-c", "[ -e a ]", "[a,b]", "--", "-x"));
    EXPECT_THAT(parse({"run", "--", "echo", "--at", "2s", "unplug", "1"}).options.program,
                ElementsAre("echo", "--at", "2s", "unplug", "1"));
}

} // namespace
} // namespace Vantor
