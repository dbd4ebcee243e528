#include "simulator/picture/PixelText.h"

#include <string>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

TEST(PixelText, render_aCharacterAPixelAndALineARow)
{
    EXPECT_EQ(PixelText::render(PanelScreen({3, 2}, {0x000000, 0xFFFFFF, 0x000000, 0xFFFFFF, 0xFFFFFF, 0x000000})),
              "#.#\n..#\n");
    EXPECT_EQ(PixelText::render(PanelScreen({1, 1})), ".\n");
}

TEST(PixelText, anyOtherColour_plus)
{
    EXPECT_EQ(PixelText::render(PanelScreen({4, 1}, {0x000001, 0xFFFFFE, 0x808080, 0xFF0000})), "++++\n");
}

TEST(PixelText, largestScreen_510LinesOf510)
{
    const std::string text = PixelText::render(PanelScreen({510, 510}));
    EXPECT_EQ(text.size(), 511u * 510u);
    EXPECT_EQ(text.substr(0, 511), std::string(510, '.') + "\n");
}

} // namespace
} // namespace Vantor
