#include "libMorvaneHostUsb/PriorityPacker.h"

#include "tests/support/EachPath.h"
#include "tests/support/PackedBytes.h"
#include "tests/support/Random.h"
#include "tests/support/Seeds.h"

#include <climits>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

using Pixels = std::vector<unsigned int>;

const Bytes marker = {0xFF, 0xFF, 0xFF, 0xFF};

// A bitmap with a buffer of `size` bytes 0xEE.
ClientLcdBitmap bitmapWithBuffer(std::size_t size)
{
    ClientLcdBitmap bitmap(0, 0, 0);
    bitmap.buffer.assign(size, 0xEE);
    return bitmap;
}

Bytes compressed(const Pixels& pixels, int width, int height)
{
    ClientLcdBitmap out = bitmapWithBuffer(4096);
    PriorityPacker::compressImage(pixels.data(), width, height, 0, 0, out);
    EXPECT_EQ(out.size(), 4096u);
    for (std::size_t i = out.encodedSize; i < out.size(); ++i)
        EXPECT_EQ(out.buffer[i], 0xEE) << "byte " << i;
    return Bytes(out.buffer.begin(), out.buffer.begin() + out.encodedSize);
}

// So many pixels, with runs of up to `longest`, and longer where two of a colour meet.
Pixels picture(Random& random, std::size_t size, unsigned int longest)
{
    Pixels pixels;
    while (pixels.size() < size)
        pixels.insert(pixels.end(), random.between(1, longest), random.below(3));
    pixels.resize(size);
    return pixels;
}

// A row marker, then a word for each run, pixel by pixel.
Bytes literally(const Pixels& pixels, std::size_t width)
{
    Bytes bytes;
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        if (i % width == 0)
            bytes.insert(bytes.end(), marker.begin(), marker.end());
        if (i % width != 0 && pixels[i] == pixels[i - 1] && bytes[bytes.size() - 4] != 255)
            ++bytes[bytes.size() - 4];
        else
            bytes.insert(bytes.end(), {1, 0, 0, static_cast<std::uint8_t>(pixels[i])});
    }
    return bytes;
}

} // namespace

TEST(CompressImage, encode_isTheRunAndThreeBytesOfThePixel)
{
    EXPECT_EQ(PriorityPacker::encode(0x12345678, 3), 0x78563403u);
    EXPECT_EQ(PriorityPacker::encode(0, 1), 0x00000001u);
    EXPECT_EQ(PriorityPacker::encode(0x00FF0000, 0), 0x0000FF00u);
    EXPECT_EQ(PriorityPacker::encode(0x0000FF00, 0), 0x00FF0000u);
    EXPECT_EQ(PriorityPacker::encode(0x000000FF, 0), 0xFF000000u);
    EXPECT_EQ(PriorityPacker::encode(0xFF000000, 0), 0u);
}

TEST(CompressImage, encodeOf255WhitePixels_isTheRowMarker)
{
    EXPECT_EQ(PriorityPacker::encode(0x00FFFFFF, 255), 0xFFFFFFFFu);
}

TEST(CompressImage, compressedImage_isAMarkerAndItsRunsForEachRow)
{
    EXPECT_EQ(compressed({0x010203, 0x010203, 0x040506, 0x0A0B0C, 0x0A0B0C, 0x0A0B0C}, 3, 2),
              joined({marker, {2, 1, 2, 3}, {1, 4, 5, 6}, marker, {3, 0x0A, 0x0B, 0x0C}}));
}

TEST(CompressImage, compressedRowOf300EqualPixels_isRunsOf255And45)
{
    EXPECT_EQ(compressed(Pixels(300, 0x010203), 300, 1), joined({marker, {255, 1, 2, 3}, {45, 1, 2, 3}}));
}

TEST(CompressImage, compressedRun_neverPassesIntoTheNextRow)
{
    EXPECT_EQ(compressed(Pixels(6, 7), 2, 3),
              joined({marker, {2, 0, 0, 7}, marker, {2, 0, 0, 7}, marker, {2, 0, 0, 7}}));
}

TEST(CompressImage, compressedRun_endsAt255)
{
    EXPECT_EQ(compressed(Pixels(254, 7), 254, 1), joined({marker, {254, 0, 0, 7}}));
    EXPECT_EQ(compressed(Pixels(255, 7), 255, 1), joined({marker, {255, 0, 0, 7}}));
    EXPECT_EQ(compressed(Pixels(256, 7), 256, 1), joined({marker, {255, 0, 0, 7}, {1, 0, 0, 7}}));
    EXPECT_EQ(compressed(Pixels(511, 7), 511, 1), joined({marker, {255, 0, 0, 7}, {255, 0, 0, 7}, {1, 0, 0, 7}}));
}

TEST(CompressImage, picturesOfAnyWidthAndRuns_areTheLiteralWords)
{
    runSeeds(slowBuild ? 1 : 3, [](unsigned int seed) {
        Random random(seed);
        for (std::size_t width = 1; width <= 300; ++width) {
            for (const unsigned int longest : {1u, 4u, 40u, 400u}) {
                const Pixels pixels = picture(random, 3 * width, longest);
                onEachPath([&] {
                    ASSERT_EQ(compressed(pixels, static_cast<int>(width), 3), literally(pixels, width))
                        << "width " << width << ", runs of up to " << longest;
                });
            }
        }
    });
}

TEST(CompressImage, compressedRowOf255WhitePixels_looksLikeTwoMarkers)
{
    EXPECT_EQ(compressed(Pixels(255, 0xFFFFFF), 255, 1), joined({marker, marker}));
    EXPECT_EQ(compressed(Pixels(254, 0xFFFFFF), 254, 1), joined({marker, {254, 0xFF, 0xFF, 0xFF}}));
}

// They are told apart, and written alike.
TEST(CompressImage, compressedPixelsThatDifferInTheTopByte_areRunsOfTheirOwn)
{
    EXPECT_EQ(compressed({0x01000007, 0x02000007}, 2, 1), joined({marker, {1, 0, 0, 7}, {1, 0, 0, 7}}));
}

TEST(CompressImage, compressImage_setsPositionAndSizeAlone)
{
    const unsigned int pixel = 7;
    ClientLcdBitmap out(9, 8, 24);
    out.lcd = 5;
    out.byteOffset = 4;
    out.rowOffset = 3;
    PriorityPacker::compressImage(&pixel, 1, 1, 300, -1, out);
    EXPECT_EQ(out.x, 44); // cut to 8 bits
    EXPECT_EQ(out.y, 255);
    EXPECT_EQ(out.encodedSize, 8u);
    EXPECT_EQ(out.lcd, 5);
    EXPECT_EQ(out.width, 9);
    EXPECT_EQ(out.height, 8);
    EXPECT_EQ(out.bitsPerPixel, 24);
    EXPECT_EQ(out.encoded, 0);
    EXPECT_EQ(out.byteOffset, 4u);
    EXPECT_EQ(out.rowOffset, 3);
    EXPECT_EQ(out.complete, 0);
}

TEST(CompressImage, compressImageIntoASmallerBuffer_setsEncodedSizeTo0Alone)
{
    const Pixels pixels = {1, 2};
    ClientLcdBitmap out = bitmapWithBuffer(11); // a marker and two runs are 12
    out.x = 3;
    out.y = 4;
    out.encodedSize = 99;
    PriorityPacker::compressImage(pixels.data(), 2, 1, 50, 60, out);
    EXPECT_EQ(out.encodedSize, 0u);
    EXPECT_EQ(out.x, 3);
    EXPECT_EQ(out.y, 4);
    EXPECT_EQ(out.buffer, Bytes(11, 0xEE));
}

TEST(CompressImage, compressImageIntoABufferThatJustFits_fillsIt)
{
    const Pixels pixels = {1, 2};
    ClientLcdBitmap out = bitmapWithBuffer(12);
    PriorityPacker::compressImage(pixels.data(), 2, 1, 50, 60, out);
    EXPECT_EQ(out.encodedSize, 12u);
    EXPECT_EQ(out.buffer, joined({marker, {1, 0, 0, 1}, {1, 0, 0, 2}}));
}

TEST(CompressImage, compressImageOfNothing_leavesTheBitmapUntouched)
{
    const unsigned int pixel = 7;
    ClientLcdBitmap out = bitmapWithBuffer(100);
    out.x = 3;
    out.y = 4;
    out.encodedSize = 99;
    PriorityPacker::compressImage(nullptr, 1, 1, 50, 60, out);
    for (const auto& [width, height] : {std::pair{0, 1}, {1, 0}, {-1, 1}, {1, -1}, {INT_MIN, INT_MIN}, {-1, INT_MAX}})
        PriorityPacker::compressImage(&pixel, width, height, 50, 60, out);
    EXPECT_EQ(out.encodedSize, 99u);
    EXPECT_EQ(out.x, 3);
    EXPECT_EQ(out.y, 4);
    EXPECT_EQ(out.buffer, Bytes(100, 0xEE));
}

} // namespace Vantor
