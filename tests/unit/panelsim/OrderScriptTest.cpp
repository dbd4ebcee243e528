#include "simulator/panelsim/OrderScript.h"

#include "tests/support/TemporaryFolder.h"

#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// "NANOSECONDS ORDER", "!ERROR", or nothing.
std::string lineOf(std::string_view text, std::chrono::nanoseconds previous = 10s)
{
    const OrderScript::Line line = OrderScript::parseLine(text, previous);
    if (!line.error.empty())
        return "!" + line.error;
    return line.order ? std::to_string(line.order->time.count()) + " " + formatPanelOrder(line.order->order) : "";
}

std::vector<std::string> readScript(const std::string& path)
{
    std::vector<std::string> lines;
    for (const TimedOrder& timed : OrderScript::read(path))
        lines.push_back(std::to_string(timed.time / 1ms) + " " + formatPanelOrder(timed.order));
    return lines;
}

// What is said of a file that can't be a script.
std::string scriptRefusalOf(const std::string& path)
{
    try {
        OrderScript::read(path);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no refusal";
}

TEST(OrderScript, line_isATimeAndAnOrder)
{
    EXPECT_EQ(lineOf("2s unplug 1"), "2000000000 unplug 1");
    EXPECT_EQ(lineOf("0 fault out stall"), "0 fault 0 out stall once");
    EXPECT_EQ(lineOf("\t250ms \t plug\r"), "250000000 plug 0");
    EXPECT_EQ(lineOf("1.5 emit type=5 hex=de:ad"), "1500000000 emit 0 type=5 hex=dead");
}

TEST(OrderScript, plus_countsFromTheOrderBefore)
{
    EXPECT_EQ(lineOf("+500ms plug", 2s), "2500000000 plug 0");
    EXPECT_EQ(lineOf("+0 plug", 2s), "2000000000 plug 0");
    EXPECT_EQ(lineOf("+1000000s plug", 0s), "1000000000000000 plug 0");
    EXPECT_EQ(lineOf("+1000000s plug", 1s), "!later than 1000000s");
}

TEST(OrderScript, remarksAndEmptyLines_orderNothing)
{
    for (const char* const text : {"", " \t\r", "# 2s unplug 1", "  #", "#"})
        EXPECT_EQ(lineOf(text), "") << text;
    EXPECT_EQ(lineOf("2s unplug 1 # 2"), "2000000000 unplug 1");
    EXPECT_EQ(lineOf("2s unplug 1#2").substr(0, 1), "!"); // no word of its own
}

// As the log has them.
TEST(OrderScript, linesOfALog_countWhenTheyAreOrders)
{
    EXPECT_EQ(lineOf("    2.000137 order: unplug 1"), "2000137000 unplug 1");
    EXPECT_EQ(lineOf("    2.000137 panel 1: unplug"), "");
    EXPECT_EQ(lineOf("    0.000000 panel 30: record type 5, 2 bytes: a1 b2"), "");
    EXPECT_EQ(lineOf("    2.000137 order: nonsense"), "!expected plug, unplug, fault or emit, found \"nonsense\"");
    EXPECT_EQ(lineOf("1s panel x: unplug"), "!expected plug, unplug, fault or emit, found \"panel\"");
    EXPECT_EQ(lineOf("1s panel"), "!expected plug, unplug, fault or emit, found \"panel\"");
    EXPECT_EQ(lineOf("1s panel 1 unplug"), "!expected plug, unplug, fault or emit, found \"panel\"");
}

TEST(OrderScript, wrongLine_saysWhatIsExpected)
{
    EXPECT_EQ(lineOf("unplug 1"),
              "!expected a time such as 250ms, 2s, 1.5s or 2 (seconds), at most 1000000s, found \"unplug\"");
    EXPECT_THAT(lineOf("-1s unplug"), HasSubstr("found \"-1s\""));
    EXPECT_THAT(lineOf("++1s unplug"), HasSubstr("found \"+1s\""));
    EXPECT_THAT(lineOf("+"), HasSubstr("found the end"));
    EXPECT_EQ(lineOf("2s"), "!expected plug, unplug, fault or emit, found the end");
    EXPECT_EQ(lineOf("2s plug 31"), "!panels are numbered 0 to 30");
    EXPECT_EQ(lineOf("2s quit"), "!expected plug, unplug, fault or emit, found \"quit\"");
}

TEST(OrderScript, file_isReadInItsOrder)
{
    const TemporaryFile file("# a script\n2s unplug 1\n+0.5s plug 1\n\n1s fault clear\n+1s unplug");
    EXPECT_THAT(readScript(file.getPath()),
                ElementsAre("2000 unplug 1", "2500 plug 1", "1000 fault 0 clear", "2000 unplug 0"));
    EXPECT_THAT(readScript(TemporaryFile("").getPath()), IsEmpty());
    EXPECT_THAT(readScript("/dev/null"), IsEmpty());
}

TEST(OrderScript, byteOrderMark_isNoPartOfTheFirstLine)
{
    const TemporaryFolder folder;
    writeFile(folder / "script", std::string("\xEF\xBB\xBF") + "1s plug\r\n2s unplug\r\n");
    EXPECT_THAT(readScript(folder / "script"), ElementsAre("1000 plug 0", "2000 unplug 0"));
}

TEST(OrderScript, longestOrder_isRead)
{
    const TemporaryFile file("1s emit type=5 hex=" + std::string(2 * 65524, 'a') + "\n");
    EXPECT_EQ(OrderScript::read(file.getPath()).size(), 1U);
}

TEST(OrderScript, wrongFile_isNamedWithTheLine)
{
    const TemporaryFile file("# a script\n2s unplug 1\n2s unplugg 1\n");
    EXPECT_EQ(scriptRefusalOf(file.getPath()),
              file.getPath() + ":3: expected plug, unplug, fault or emit, found \"unplugg\"");
    EXPECT_EQ(scriptRefusalOf("/nowhere/at all"),
              "cannot read the script '/nowhere/at all': No such file or directory");
    EXPECT_EQ(scriptRefusalOf("/"), "cannot read the script '/': Is a directory");
    // Bytes that are no text at all.
    const TemporaryFile noise(std::string("\x7F"
                                          "ELF\0\x1B[31m",
                                          9));
    EXPECT_THAT(scriptRefusalOf(noise.getPath()), HasSubstr(":1: expected a time"));
    EXPECT_EQ(scriptRefusalOf(noise.getPath()).find('\x1B'), std::string::npos);
}

} // namespace
} // namespace Vantor
