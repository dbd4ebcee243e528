#include "simulator/panelsim/LcdOption.h"

#include <string>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

void expectOption(const std::string& text, unsigned int lcd, unsigned int width, unsigned int height)
{
    const ParsedLcdOption parsed = parseLcdOption(text);
    ASSERT_TRUE(parsed.option) << parsed.error;
    EXPECT_EQ(parsed.option->lcd, lcd);
    EXPECT_EQ(parsed.option->size.width, width);
    EXPECT_EQ(parsed.option->size.height, height);
    EXPECT_EQ(parsed.error, "");
}

void expectError(const std::string& text, const std::string& error)
{
    const ParsedLcdOption parsed = parseLcdOption(text);
    EXPECT_FALSE(parsed.option) << text;
    EXPECT_EQ(parsed.error, error) << text;
}

TEST(LcdOption, numberAndSize_taken)
{
    expectOption("0=128x64", 0, 128, 64);
    expectOption("65535=1x510", 65535, 1, 510);
    expectOption("7=510x1", 7, 510, 1);
}

TEST(LcdOption, absurdSizes_refused)
{
    for (const char* const size :
         {"0x1", "1x0", "511x1", "1x511", "99999999999x1", "-1x1", "x", "1x", "x1", "1x1x1", " 1x1", "1x1 ", "0x10x1"})
        expectError("3=" + std::string(size), "an LCD is 1x1 to 510x510 pixels, found '" + std::string(size) + "'");
}

TEST(LcdOption, otherNumbers_refused)
{
    for (const char* const lcd : {"65536", "", "-1", "+1", "a", "1 "})
        expectError(std::string(lcd) + "=1x1", "LCDs are numbered 0 to 65535, found '" + std::string(lcd) + "'");
}

TEST(LcdOption, otherShapes_refused)
{
    for (const char* const text : {"", "1", "1x1", "1=1", "1=1X1", "1:1x1"})
        expectError(text, "expected L=WxH such as 0=128x64, found '" + std::string(text) + "'");
}

TEST(LcdOption, whatIsLong_isQuotedInPart)
{
    const std::string quoted = std::string(80, '9') + "...'";
    const std::string nines(81, '9');
    expectError(nines, "expected L=WxH such as 0=128x64, found '" + quoted);
    expectError(nines + "=1x1", "LCDs are numbered 0 to 65535, found '" + quoted);
    expectError("1=" + nines + "x1", "an LCD is 1x1 to 510x510 pixels, found '" + quoted);
}

} // namespace
} // namespace Vantor
