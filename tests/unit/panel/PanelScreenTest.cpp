#include "simulator/panel/PanelScreen.h"

#include <cstdint>
#include <stdexcept>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using testing::Each;
using testing::ElementsAre;

using Pixels = std::vector<std::uint32_t>;
constexpr std::uint32_t w = 0xFFFFFF;

TEST(PanelScreen, freshScreen_isWhite)
{
    const PanelScreen screen({3, 2});
    EXPECT_EQ(screen.getWidth(), 3u);
    EXPECT_EQ(screen.getHeight(), 2u);
    EXPECT_EQ(screen.getPixels().size(), 6u);
    EXPECT_THAT(screen.getPixels(), Each(w));
}

TEST(PanelScreen, sizes_1x1To510x510)
{
    EXPECT_NO_THROW(PanelScreen({1, 1}));
    EXPECT_NO_THROW(PanelScreen({510, 510}));
    EXPECT_THROW(PanelScreen({0, 1}), std::invalid_argument);
    EXPECT_THROW(PanelScreen({1, 0}), std::invalid_argument);
    EXPECT_THROW(PanelScreen({511, 1}), std::invalid_argument);
    EXPECT_THROW(PanelScreen({1, 511}), std::invalid_argument);
    EXPECT_THROW(PanelScreen({0xFFFFFFFF, 0xFFFFFFFF}), std::invalid_argument);
}

TEST(PanelScreen, pixelsOfItsOwn_asManyAsItHas)
{
    EXPECT_THAT(PanelScreen({3, 1}, {1, 2, 3}).getPixels(), ElementsAre(1, 2, 3));
    EXPECT_THROW(PanelScreen({3, 1}, {1, 2}), std::invalid_argument);
    EXPECT_THROW(PanelScreen({3, 1}, {1, 2, 3, 4}), std::invalid_argument);
    EXPECT_THROW(PanelScreen({0, 1}, {}), std::invalid_argument);
}

TEST(PanelScreen, part_rowsFromThatPixelOn)
{
    const PanelScreen screen({3, 3}, {1, 2, 3, 4, 5, 6, 7, 8, 9});
    const PanelScreen part = screen.getPart(1, 0, {2, 3});
    EXPECT_EQ(part.getWidth(), 2u);
    EXPECT_EQ(part.getHeight(), 3u);
    EXPECT_THAT(part.getPixels(), ElementsAre(2, 3, 5, 6, 8, 9));
    EXPECT_THAT(screen.getPart(0, 2, {1, 1}).getPixels(), ElementsAre(7));
}

TEST(PanelScreen, partBeyondTheEdge_throws)
{
    const PanelScreen screen({3, 2});
    EXPECT_THROW((void)screen.getPart(2, 0, {2, 1}), std::out_of_range);
    EXPECT_THROW((void)screen.getPart(0, 1, {1, 2}), std::out_of_range);
    EXPECT_THROW((void)screen.getPart(0, 0, {4, 1}), std::out_of_range);
    EXPECT_THROW((void)screen.getPart(0, 0, {1, 3}), std::out_of_range);
    EXPECT_THROW((void)screen.getPart(0, 0, {0, 1}), std::out_of_range);
    EXPECT_THROW((void)screen.getPart(0xFFFFFFFF, 0, {2, 1}), std::out_of_range);
    EXPECT_THROW((void)screen.getPart(0, 0xFFFFFFFF, {1, 2}), std::out_of_range);
}

TEST(PanelScreen, draw_rowsOfTheGivenWidth)
{
    PanelScreen screen({4, 3});
    screen.draw(1, 1, 2, {1, 2, 3, 4});
    EXPECT_THAT(screen.getPixels(), ElementsAre(w, w, w, w, w, 1, 2, w, w, 3, 4, w));
    EXPECT_EQ(screen.getPixel(2, 1), 2u);
    EXPECT_EQ(screen.getPixel(1, 2), 3u);
}

TEST(PanelScreen, pixelsMissingAtTheEnd_stayAsTheyWere)
{
    PanelScreen screen({2, 2});
    screen.draw(0, 0, 2, {1, 2, 3, 4});
    screen.draw(0, 0, 2, {5, 6, 7});
    EXPECT_THAT(screen.getPixels(), ElementsAre(5, 6, 7, 4));
    screen.draw(0, 0, 2, {});
    EXPECT_THAT(screen.getPixels(), ElementsAre(5, 6, 7, 4));
}

TEST(PanelScreen, beyondRightAndBottom_clippedAndNotWrapped)
{
    PanelScreen screen({3, 2});
    screen.draw(2, 1, 2, {1, 2, 3, 4});
    EXPECT_THAT(screen.getPixels(), ElementsAre(w, w, w, w, w, 1));
    screen.draw(0, 0, 4, {5, 6, 7, 8, 9, 10, 11, 12});
    EXPECT_THAT(screen.getPixels(), ElementsAre(5, 6, 7, 9, 10, 11));
}

TEST(PanelScreen, whollyOutside_drawsNothing)
{
    PanelScreen screen({3, 2});
    screen.draw(3, 0, 1, {1, 2});
    screen.draw(0, 2, 3, {1, 2, 3});
    screen.draw(0xFFFFFFFF, 0xFFFFFFFF, 1, {1});
    EXPECT_THAT(screen.getPixels(), Each(w));
}

TEST(PanelScreen, widthZero_drawsNothing)
{
    PanelScreen screen({1, 1});
    screen.draw(0, 0, 0, {1});
    EXPECT_THAT(screen.getPixels(), Each(w));
}

TEST(PanelScreen, pixelOutside_throws)
{
    const PanelScreen screen({3, 2});
    EXPECT_EQ(screen.getPixel(2, 1), w);
    EXPECT_THROW(screen.getPixel(3, 1), std::out_of_range);
    EXPECT_THROW(screen.getPixel(2, 2), std::out_of_range);
}

} // namespace
} // namespace Vantor
