#include "libMorvaneHostUsb/LcdHelper.h"

#include "tests/support/PackedBytes.h"

#include "tests/support/EachPath.h"
#include "tests/support/LiteralDither.h"
#include "tests/support/Random.h"
#include "tests/support/Seeds.h"

#include <climits>

#include <gtest/gtest.h>

namespace Vantor {

static_assert(LcdHelper::Threshold == 0 && LcdHelper::Atkinson == 1 && LcdHelper::FloydSteinberg == 2 &&
              LcdHelper::Stucki == 3);

namespace {

Bytes dithered(Bytes grey, int width, int height, int type, int threshold)
{
    LcdHelper::ditherImage(grey.data(), width, height, static_cast<LcdHelper::DitherType>(type), threshold);
    return grey;
}

Bytes added(Bytes grey, int x, int y, int width, int height, int delta)
{
    LcdHelper::addPixel(grey.data(), x, y, width, height, delta);
    return grey;
}

std::vector<Bytes> picturesOf(int width, int height, Random& random)
{
    const auto size = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    std::vector<Bytes> pictures = {Bytes(size, 0),   Bytes(size, 255),   Bytes(size, 127),
                                   Bytes(size, 128), random.bytes(size), random.bytes(size)};
    Bytes across(size);
    Bytes down(size);
    Bytes checks(size);
    for (std::size_t i = 0; i < size; ++i) {
        const auto x = static_cast<int>(i) % width;
        const auto y = static_cast<int>(i) / width;
        across[i] = static_cast<std::uint8_t>(255 * x / width);
        down[i] = static_cast<std::uint8_t>(255 - 255 * y / height);
        checks[i] = static_cast<std::uint8_t>((x + y) % 2 == 0 ? 250 : 5); // wraps and goes below 0
    }
    pictures.insert(pictures.end(), {across, down, checks});
    return pictures;
}

void expectLiteralResult(const Bytes& picture, int width, int height, int type, int threshold)
{
    const Bytes expected = LiteralDither::dither(picture, width, height, type, threshold);
    onEachPath([&] {
        ASSERT_EQ(dithered(picture, width, height, type, threshold), expected)
            << width << " × " << height << ", type " << type << ", threshold " << threshold << ", picture "
            << testing::PrintToString(picture);
    });
}

void expectLiteralResults(int width, int height, Random& random)
{
    for (const Bytes& picture : picturesOf(width, height, random)) {
        for (int type = 0; type <= 3; ++type) {
            for (const int threshold : {0, 1, 60, 128, 255, 256}) {
                expectLiteralResult(picture, width, height, type, threshold);
                if (testing::Test::HasFailure())
                    return;
            }
        }
    }
}

} // namespace

TEST(LcdHelperDither, addPixel_adds)
{
    EXPECT_EQ(added({1, 2, 3, 4}, 1, 1, 2, 2, 10), (Bytes{1, 2, 3, 14}));
    EXPECT_EQ(added({1, 2, 3, 4}, 1, 1, 2, 2, -3), (Bytes{1, 2, 3, 1}));
}

TEST(LcdHelperDither, addPixelAbove255_wraps)
{
    EXPECT_EQ(added({0, 0, 0, 250}, 1, 1, 2, 2, 20), (Bytes{0, 0, 0, 14}));
    EXPECT_EQ(added({0, 0, 0, 255}, 1, 1, 2, 2, 1), (Bytes{0, 0, 0, 0}));
    EXPECT_EQ(added({0, 0, 0, 5}, 1, 1, 2, 2, INT_MAX), (Bytes{0, 0, 0, 4}));
}

TEST(LcdHelperDither, addPixelBelow0_is0)
{
    EXPECT_EQ(added({0, 0, 0, 4}, 1, 1, 2, 2, -5), (Bytes{0, 0, 0, 0}));
    EXPECT_EQ(added({0, 0, 0, 4}, 1, 1, 2, 2, -300), (Bytes{0, 0, 0, 0}));
    EXPECT_EQ(added({0, 0, 0, 4}, 1, 1, 2, 2, INT_MIN), (Bytes{0, 0, 0, 0}));
}

TEST(LcdHelperDither, addPixelInRow0OrColumn0_addsNothing)
{
    const Bytes grey = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(added(grey, i, 0, 3, 3, 50), grey);
        EXPECT_EQ(added(grey, 0, i, 3, 3, 50), grey);
    }
}

TEST(LcdHelperDither, addPixelOutside_addsNothing)
{
    const Bytes grey = {1, 2, 3, 4};
    for (const auto& [x, y] : {std::pair{2, 1}, {1, 2}, {-1, 1}, {1, -1}, {INT_MAX, INT_MAX}, {INT_MIN, INT_MIN}})
        EXPECT_EQ(added(grey, x, y, 2, 2, 50), grey);
    LcdHelper::addPixel(nullptr, 1, 1, 0, 0, 50);
    LcdHelper::addPixel(nullptr, 1, 1, -1, -1, 50);
}

TEST(LcdHelperDither, uniform128WithThreshold128_becomesAll255)
{
    EXPECT_EQ(dithered(Bytes(12, 128), 4, 3, 0, 128), Bytes(12, 255));
    EXPECT_EQ(dithered(Bytes(12, 128), 4, 3, 0, 129), Bytes(12, 0));
}

TEST(LcdHelperDither, everyUnlistedType_isTheThresholdAlone)
{
    const Bytes grey = {90, 110, 90, 110, 90, 110, 90, 110, 90};
    for (const int type : {INT_MIN, -1, 0, 4, 5, INT_MAX})
        EXPECT_EQ(dithered(grey, 3, 3, type, 100), (Bytes{0, 255, 0, 255, 0, 255, 0, 255, 0}));
}

TEST(LcdHelperDither, thresholdBeyondTheGreys_isComparedAsAnInt)
{
    EXPECT_EQ(dithered({0, 255}, 2, 1, 0, 0), (Bytes{255, 255}));
    EXPECT_EQ(dithered({0, 255}, 2, 1, 0, -1), (Bytes{255, 255}));
    EXPECT_EQ(dithered({0, 255}, 2, 1, 0, 256), (Bytes{0, 0}));
    EXPECT_EQ(dithered({0, 255}, 2, 1, 0, INT_MAX), (Bytes{0, 0}));
}

// 127 would pass 55 to its right neighbour.
TEST(LcdHelperDither, row0_isThresholdedWithoutDiffusion)
{
    for (int type = 0; type <= 3; ++type) {
        EXPECT_EQ(dithered(Bytes(5, 127), 5, 1, type, 128), Bytes(5, 0));
        EXPECT_EQ(dithered(Bytes(5, 128), 5, 1, type, 128), Bytes(5, 255));
    }
}

// Each would receive from the pixels above it and to its right above.
TEST(LcdHelperDither, column0_isThresholdedWithoutDiffusion)
{
    for (int type = 0; type <= 3; ++type) {
        EXPECT_EQ(dithered(Bytes(5, 127), 1, 5, type, 128), Bytes(5, 0));
        const Bytes twoColumns = dithered(Bytes(8, 127), 2, 4, type, 128);
        for (std::size_t row = 0; row < 4; ++row)
            EXPECT_EQ(twoColumns[2 * row], 0);
    }
}

// 128 - 255 = -127; -127 × 7 / 16 = -55.6, cut to -55.
TEST(LcdHelperDither, floydSteinbergShare_isCutTowardsZero)
{
    EXPECT_EQ(dithered({255, 255, 128, 182}, 2, 2, 2, 128), (Bytes{255, 255, 255, 0}));
    EXPECT_EQ(dithered({255, 255, 128, 183}, 2, 2, 2, 128), (Bytes{255, 255, 255, 255}));
}

// Row 0 gives -127: 3/16 -23, 5/16 -39, 1/16 -7. Row 1 begins as 128, 59, 82; its first
// gives -55 to the second, which gives 4 × 7 / 16 = 1 to the third.
TEST(LcdHelperDither, floydSteinberg_byHand)
{
    EXPECT_EQ(dithered(Bytes(6, 128), 3, 2, 2, 128), (Bytes{255, 255, 255, 255, 0, 0}));
}

// The same with a brighter middle pixel, which meets the threshold as 127 and gives 55 to
// the third (137), or as 128 and gives -55 (27).
TEST(LcdHelperDither, floydSteinbergPixelAtTheThreshold_isWhite)
{
    EXPECT_EQ(dithered({128, 128, 128, 128, 251, 128}, 3, 2, 2, 128), (Bytes{255, 255, 255, 255, 0, 255}));
    EXPECT_EQ(dithered({128, 128, 128, 128, 252, 128}, 3, 2, 2, 128), (Bytes{255, 255, 255, 255, 255, 0}));
}

// An eighth of -127 is -15. Row 1 begins as 128, 83, 83, 98 and meets its thresholds as
// 128, 68, 76, 115; row 2 begins as 128, 113, 113, 113 and meets them as 128, 100, 141, 134.
TEST(LcdHelperDither, atkinson_byHand)
{
    EXPECT_EQ(dithered(Bytes(12, 128), 4, 3, 1, 128), (Bytes{255, 255, 255, 255, 255, 0, 0, 0, 255, 0, 255, 255}));
}

// -127 gives 1/6 -21, 5/42 -15, 1/21 -6, 4/42 -12, 8/42 -24, 1/42 -3. Row 1 begins as 128,
// 80, 86 and meets its thresholds as 128, 59, 80; row 2 begins as 128, 104, 107 and meets
// them as 128, 89, 120.
TEST(LcdHelperDither, stucki_byHand)
{
    EXPECT_EQ(dithered(Bytes(9, 128), 3, 3, 3, 128), (Bytes{255, 255, 255, 255, 0, 0, 255, 0, 0}));
}

// 126 / 6 = 21, where 8/42 would be 24.
TEST(LcdHelperDither, stuckiRightNeighbour_getsASixth)
{
    EXPECT_EQ(dithered({255, 255, 255, 255, 126, 105}, 3, 2, 3, 127), (Bytes{255, 255, 255, 255, 0, 0}));
    EXPECT_EQ(dithered({255, 255, 255, 255, 126, 106}, 3, 2, 3, 127), (Bytes{255, 255, 255, 255, 0, 255}));
}

// 126 × 5 / 42 = 15, and the pixel between passes on 21 / 6 = 3.
TEST(LcdHelperDither, stuckiSecondNeighbour_getsFive42nds)
{
    EXPECT_EQ(dithered({255, 255, 255, 255, 255, 126, 0, 108}, 4, 2, 3, 127),
              (Bytes{255, 255, 255, 255, 255, 0, 0, 0}));
    EXPECT_EQ(dithered({255, 255, 255, 255, 255, 126, 0, 109}, 4, 2, 3, 127),
              (Bytes{255, 255, 255, 255, 255, 0, 0, 255}));
}

// 100 × 7 / 16 = 43; 230 + 43 wraps to 17, which is dark.
TEST(LcdHelperDither, whiteNeighbourThatReceivesMore_turnsDark)
{
    EXPECT_EQ(dithered({255, 255, 255, 255, 100, 230}, 3, 2, 2, 128), (Bytes{255, 255, 255, 255, 0, 0}));
    EXPECT_EQ(dithered({255, 255, 255, 255, 100, 212}, 3, 2, 2, 128), (Bytes{255, 255, 255, 255, 0, 255}));
}

TEST(LcdHelperDither, ditherWithoutPixels_touchesNothing)
{
    for (int type = 0; type <= 3; ++type) {
        for (const auto& [width, height] : {std::pair{0, 2}, {2, 0}, {-1, 2}, {2, -1}, {INT_MIN, INT_MIN}}) {
            LcdHelper::ditherImage(nullptr, width, height, static_cast<LcdHelper::DitherType>(type), 128);
            EXPECT_EQ(dithered({1, 2, 200, 4}, width, height, type, 128), (Bytes{1, 2, 200, 4}));
        }
    }
}

TEST(LcdHelperDither, ditherOfEverySmallPicture_isTheLiteralOne)
{
    runSeeds(1, [](unsigned int seed) {
        Random random(seed);
        for (int height = 1; height <= 9 && !HasFailure(); ++height) {
            for (int width = 1; width <= 9 && !HasFailure(); ++width)
                expectLiteralResults(width, height, random);
        }
    });
}

// Where the bands of rows that go side by side begin and end, and the steps in them.
TEST(LcdHelperDither, ditherOfEverySizeAboutTheBands_isTheLiteralOne)
{
    runSeeds(1, [](unsigned int seed) {
        Random random(seed);
        for (const int height : {1, 2, 3, 13, 14, 15, 16, 17, 18, 28, 29, 30, 31, 32, 33, 46}) {
            for (int width = 12; width <= 82 && !HasFailure(); width += slowBuild ? 5 : 1) {
                const Bytes picture = random.bytes(static_cast<std::size_t>(width * height));
                for (int type = 1; type <= 3; ++type)
                    expectLiteralResult(picture, width, height, type, 1 + static_cast<int>(random.below(255)));
            }
        }
    });
}

TEST(LcdHelperDither, ditherOfLargerPictures_isTheLiteralOne)
{
    runSeeds(1, [](unsigned int seed) {
        Random random(seed);
        std::vector<std::pair<int, int>> sizes = {{33, 17}, {127, 5}, {3, 101}, {145, 61}};
        if (!slowBuild)
            sizes.emplace_back(144, 168);
        for (const auto& [width, height] : sizes) {
            expectLiteralResults(width, height, random);
            if (HasFailure())
                return;
        }
    });
}

} // namespace Vantor
