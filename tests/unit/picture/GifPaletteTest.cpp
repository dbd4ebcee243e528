#include "simulator/picture/GifPalette.h"
#include "tests/unit/picture/Pixels.h"

#include <cstdint>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using testing::ElementsAre;

PanelScreen colours(unsigned int count)
{
    Pixels pixels;
    for (std::uint32_t i = 0; i < count; ++i)
        pixels.push_back(0x100000 + i);
    return {{count, 1}, pixels};
}

TEST(GifPalette, fewColours_areItsOwn)
{
    GifPalette palette;
    palette.add(PanelScreen({3, 1}, {0x123456, 0xFFFFFF, 0x123456}));
    const PanelScreen second({2, 1}, {0x000001, 0xFFFFFF});
    palette.add(second);
    EXPECT_THAT(palette.getColours(), ElementsAre(0x123456, 0xFFFFFF, 0x000001));
    EXPECT_THAT(palette.getIndices(second), ElementsAre(2, 1));
}

TEST(GifPalette, colours256_areExact)
{
    GifPalette palette;
    const PanelScreen screen = colours(256);
    palette.add(screen);
    palette.add(screen);
    EXPECT_EQ(palette.getColours(), screen.getPixels());
    EXPECT_EQ(palette.getIndices(screen).back(), 255);
}

TEST(GifPalette, colours257_theNearestOf216)
{
    GifPalette palette;
    palette.add(colours(200));
    palette.add(colours(257));
    const Pixels shown = palette.getColours();
    ASSERT_EQ(shown.size(), 216u);

    // The levels are 0, 51, 102, 153, 204, 255: 25 is nearer to 0, 26 to 51, 229 to 204, 230 to 255.
    const PanelScreen screen({6, 1}, {0x000000, 0xFFFFFF, 0x190000, 0x001A00, 0x0000E5, 0xE60066});
    const std::vector<std::uint8_t> indices = palette.getIndices(screen);
    Pixels reduced;
    for (const std::uint8_t index : indices)
        reduced.push_back(shown.at(index));
    EXPECT_THAT(reduced, ElementsAre(0x000000, 0xFFFFFF, 0x000000, 0x003300, 0x0000CC, 0xFF0066));
}

} // namespace
} // namespace Vantor
