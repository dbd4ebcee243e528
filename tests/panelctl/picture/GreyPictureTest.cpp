#include "panelctl/picture/GreyPicture.h"
#include "tests/support/Bytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

GreyPicture pictureOf(unsigned int width, unsigned int height, const Bytes& pixels)
{
    return {width, height, pixels};
}

} // namespace

TEST(GreyPicture, exactSize_isNotTouched)
{
    const Bytes pixels{0, 1, 254, 255, 127, 128};
    EXPECT_THAT(pictureOf(3, 2, pixels).scaledInto(3, 2).getPixels(), ElementsAreArray(pixels));
}

TEST(GreyPicture, half_isTheRoundedMean)
{
    EXPECT_THAT(pictureOf(4, 2,
                          {0, 1, 10, 20, //
                           1, 0, 30, 43})
                    .scaledInto(2, 1)
                    .getPixels(),
                ElementsAre(1, 26)); // 0.5 and 25.75
}

TEST(GreyPicture, twoThirds_shareTheMiddlePixel)
{
    // Each of the two covers a pixel and a half in both directions.
    EXPECT_THAT(pictureOf(3, 3,
                          {0, 90, 0, //
                           0, 90, 0, //
                           0, 90, 180})
                    .scaledInto(2, 2)
                    .getPixels(),
                ElementsAre(30, 30, 30, 110)); // (4.5 × 30 + 2 × 180) / 4.5 for the last one: 30 + 80
}

TEST(GreyPicture, double_repeatsPixels)
{
    EXPECT_THAT(pictureOf(2, 1, {7, 200}).scaledInto(4, 2).getPixels(), ElementsAre(7, 7, 200, 200, 7, 7, 200, 200));
}

TEST(GreyPicture, enlargedByAHalf_blendsWherePixelsMeet)
{
    EXPECT_THAT(pictureOf(2, 2, {0, 100, 0, 100}).scaledInto(3, 3).getPixels(),
                ElementsAre(0, 50, 100, 0, 50, 100, 0, 50, 100));
}

TEST(GreyPicture, aspect_isKept)
{
    const GreyPicture wide = pictureOf(4, 1, {1, 2, 3, 4}).scaledInto(4, 4);
    EXPECT_EQ(wide.getWidth(), 4U);
    EXPECT_THAT(wide.getPixels(), ElementsAre(1, 2, 3, 4));
    const GreyPicture high = pictureOf(1, 2, {9, 8}).scaledInto(5, 2);
    EXPECT_EQ(high.getWidth(), 1U);
    EXPECT_THAT(high.getPixels(), ElementsAre(9, 8));
}

TEST(GreyPicture, rowsLeftOver_areOneMoreBelow)
{
    EXPECT_THAT(pictureOf(2, 1, {1, 2}).centredOn(2, 4, 255).getPixels(),
                ElementsAre(255, 255, 1, 2, 255, 255, 255, 255));
}

TEST(GreyPicture, columnsLeftOver_areOneMoreToTheRight)
{
    EXPECT_THAT(pictureOf(1, 2, {9, 8}).centredOn(4, 2, 7).getPixels(), ElementsAre(7, 9, 7, 7, 7, 8, 7, 7));
}

TEST(GreyPicture, sameSize_hasNoMargin)
{
    EXPECT_THAT(pictureOf(2, 1, {1, 2}).centredOn(2, 1, 0).getPixels(), ElementsAre(1, 2));
}

TEST(GreyPicture, extremeAspect_keepsOneRow)
{
    const GreyPicture line = GreyPicture(1000, 1, 0).scaledInto(3, 3);
    EXPECT_EQ(line.getWidth(), 3U);
    EXPECT_THAT(line.getPixels(), ElementsAre(0, 0, 0));
}

TEST(GreyPicture, innerSide_isRoundedHalfUp)
{
    EXPECT_EQ(GreyPicture(3, 2, 0).scaledInto(5, 5).getHeight(), 3U); // 10 / 3
    EXPECT_EQ(GreyPicture(2, 1, 0).scaledInto(5, 5).getHeight(), 3U); // 2.5
}

TEST(GreyPicture, emptyPicture_staysEmpty)
{
    EXPECT_EQ(GreyPicture(0, 5, 0).scaledInto(2, 1).getHeight(), 0U);
    EXPECT_EQ(GreyPicture(5, 0, 0).scaledInto(2, 1).getWidth(), 0U);
    EXPECT_THAT(GreyPicture(0, 0, 0).centredOn(2, 1, 255).getPixels(), ElementsAre(255, 255));
}

TEST(GreyPicture, largestPicture_keepsItsShade)
{
    EXPECT_THAT(GreyPicture(16384, 1024, 254).scaledInto(255, 16).getPixels(), Each(254));
}

TEST(GreyPicture, invert_mirrorsShades)
{
    GreyPicture picture = pictureOf(3, 1, {0, 100, 255});
    picture.invert();
    EXPECT_THAT(picture.getPixels(), ElementsAre(255, 155, 0));
}

TEST(GreyPicture, dither_leavesBlackBelowTheThreshold)
{
    GreyPicture picture = pictureOf(4, 1, {99, 100, 101, 0});
    picture.dither(LcdHelper::Threshold, 100);
    EXPECT_THAT(picture.getPixels(), ElementsAre(0, 255, 255, 0));
}

TEST(GreyPicture, layers_areOfWhatIsDark)
{
    const auto layers = pictureOf(8, 1, {0, 255, 127, 128, 0, 0, 255, 255}).makeLayers(3, 4, 5, LcdPicture::Form::Raw);
    ASSERT_EQ(layers.size(), 1U);
    EXPECT_EQ(layers[0].lcd, 3);
    EXPECT_EQ(layers[0].x, 4);
    EXPECT_EQ(layers[0].y, 5);
    EXPECT_THAT(layers[0].buffer, ElementsAre(0b10101100));
}

} // namespace Vantor
