#include "simulator/picture/ScreenText.h"
#include "tests/unit/picture/Pixels.h"

#include <cstdint>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

constexpr auto paper = ScreenText::Background::Paper;

TEST(ScreenText, twoRows_areOneLineOfHalfBlocks)
{
    PanelScreen screen({4, 2});
    screen.draw(0, 0, 4, {b, b, w, w, b, w, b, w});
    EXPECT_EQ(ScreenText::render(screen, paper), "█▀▄ \n");
}

TEST(ScreenText, oddHeight_lastLineIsHalf)
{
    PanelScreen screen({2, 3});
    screen.draw(0, 2, 2, {b, w});
    EXPECT_EQ(ScreenText::render(screen, paper), "  \n▀ \n");
}

TEST(ScreenText, colours_byBrightness)
{
    // Blue and red are dark (29 and 76 of 255), green is light (149); 127 dark, 128 light.
    PanelScreen screen({5, 1});
    screen.draw(0, 0, 5, {0x0000FF, 0xFF0000, 0x00FF00, 0x7F7F7F, 0x808080});
    EXPECT_EQ(ScreenText::render(screen, paper), "▀▀ ▀ \n");
}

TEST(ScreenText, terminal_blackOnWhiteLineByLine)
{
    PanelScreen screen({1, 3});
    screen.draw(0, 0, 1, {b});
    EXPECT_EQ(ScreenText::render(screen, ScreenText::Background::Terminal),
              "\x1B[30;107m▀\x1B[0m\n\x1B[30;107m \x1B[0m\n");
}

} // namespace
} // namespace Vantor
