#include "libMorvaneHostUsb/BitmapImage.h"

#include "tests/support/PackedBytes.h"

#include <climits>
#include <type_traits>

#include <gtest/gtest.h>

namespace Vantor {

static_assert(std::is_same_v<decltype(BitmapImage::data), unsigned char*>);
static_assert(std::is_same_v<decltype(BitmapImage::width), int>);
static_assert(std::is_same_v<decltype(BitmapImage::format), int>);
static_assert(BitmapImage::Gray8 == 2 && BitmapImage::Rgb332 == 3 && BitmapImage::Rgb444 == 4 &&
              BitmapImage::Rgb565 == 5 && BitmapImage::Rgb888 == 6 && BitmapImage::Rgba8888 == 7);

namespace {

BitmapImage view(Bytes& bytes, int width, int height, int format, int threshold = 100)
{
    return {bytes.data(), width, height, format, threshold};
}

} // namespace

TEST(BitmapImage, fields_standInTheirOrder)
{
    const BitmapImage image{};
    const void* const fields[] = {&image.data, &image.width, &image.height, &image.format, &image.threshold};
    for (std::size_t i = 1; i < std::size(fields); ++i)
        EXPECT_LT(fields[i - 1], fields[i]);
}

TEST(BitmapImage, gray8_isTheGreyByteUnexpanded)
{
    Bytes bytes = {0x00, 0xC8, 0xFF, 0x01};
    const BitmapImage image = view(bytes, 2, 2, 2);
    EXPECT_EQ(image.getRgbPixel(0, 0), 0x000000u);
    EXPECT_EQ(image.getRgbPixel(1, 0), 0x0000C8u);
    EXPECT_EQ(image.getRgbPixel(0, 1), 0x0000FFu);
    EXPECT_EQ(image.getRgbPixel(1, 1), 0x000001u);
}

// 5 × 255 / 7 = 182, 3 × 255 / 7 = 109, 2 × 85 = 170.
TEST(BitmapImage, rgb332_spreadsItsThreeParts)
{
    Bytes bytes = {0b101'011'10, 0b000'000'00, 0b111'111'11, 0b111'000'00, 0b000'111'00, 0b000'000'11};
    const BitmapImage image = view(bytes, 3, 2, 3);
    EXPECT_EQ(image.getRgbPixel(0, 0), 0xB66DAAu);
    EXPECT_EQ(image.getRgbPixel(1, 0), 0x000000u);
    EXPECT_EQ(image.getRgbPixel(2, 0), 0xFFFFFFu);
    EXPECT_EQ(image.getRgbPixel(0, 1), 0xFF0000u);
    EXPECT_EQ(image.getRgbPixel(1, 1), 0x00FF00u);
    EXPECT_EQ(image.getRgbPixel(2, 1), 0x0000FFu);
}

TEST(BitmapImage, rgb332_roundsEveryThirdBitValueDown)
{
    const unsigned int levels[] = {0, 36, 72, 109, 145, 182, 218, 255};
    for (unsigned int value = 0; value < 8; ++value) {
        Bytes bytes = {static_cast<std::uint8_t>(value << 5), static_cast<std::uint8_t>(value << 2)};
        const BitmapImage image = view(bytes, 2, 1, 3);
        EXPECT_EQ(image.getRgbPixel(0, 0), levels[value] << 16);
        EXPECT_EQ(image.getRgbPixel(1, 0), levels[value] << 8);
    }
}

TEST(BitmapImage, rgb444_evenAndOddColumnsShareAByte)
{
    Bytes bytes = {0x12, 0x34, 0x56};
    const BitmapImage image = view(bytes, 2, 1, 4);
    EXPECT_EQ(image.getRgbPixel(0, 0), 0x112233u);
    EXPECT_EQ(image.getRgbPixel(1, 0), 0x445566u);
}

// Three columns: pixel 3, at byte 4, is an even column of an odd row, and so is read
// like an even pixel though it begins in the middle of a byte.
TEST(BitmapImage, rgb444OddWidth_takesTheNibblesByTheColumnsParity)
{
    Bytes bytes = {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0, 0x1C};
    const BitmapImage image = view(bytes, 3, 2, 4);
    EXPECT_EQ(image.getRgbPixel(2, 0), 0x778899u);
    EXPECT_EQ(image.getRgbPixel(0, 1), 0x99AABBu);
    EXPECT_EQ(image.getRgbPixel(1, 1), 0xEEFF00u);
    EXPECT_EQ(image.getRgbPixel(2, 1), 0xFF0011u);
}

// 0xA5C3 = 10100 101110 00011: 20 × 255 / 31 = 164, 46 × 255 / 63 = 186, 3 × 255 / 31 = 24.
TEST(BitmapImage, rgb565_isALittleEndianWord)
{
    Bytes bytes = {0xC3, 0xA5, 0x00, 0xF8, 0xE0, 0x07, 0x1F, 0x00};
    const BitmapImage image = view(bytes, 2, 2, 5);
    EXPECT_EQ(image.getRgbPixel(0, 0), 0xA4BA18u);
    EXPECT_EQ(image.getRgbPixel(1, 0), 0xFF0000u);
    EXPECT_EQ(image.getRgbPixel(0, 1), 0x00FF00u);
    EXPECT_EQ(image.getRgbPixel(1, 1), 0x0000FFu);
}

TEST(BitmapImage, rgb888_isAsStored)
{
    Bytes bytes = {0x12, 0x34, 0x56, 0xFE, 0xDC, 0xBA};
    const BitmapImage image = view(bytes, 1, 2, 6);
    EXPECT_EQ(image.getRgbPixel(0, 0), 0x123456u);
    EXPECT_EQ(image.getRgbPixel(0, 1), 0xFEDCBAu);
}

// 200 × 128 / 255 = 100, 100 × 128 / 255 = 50, 50 × 128 / 255 = 25.
TEST(BitmapImage, rgba8888_isMultipliedByItsAlpha)
{
    Bytes bytes = {200, 100, 50, 128, 0x12, 0x34, 0x56, 255, 0x12, 0x34, 0x56, 0, 255, 254, 1, 254};
    const BitmapImage image = view(bytes, 4, 1, 7);
    EXPECT_EQ(image.getRgbPixel(0, 0), 0x643219u);
    EXPECT_EQ(image.getRgbPixel(1, 0), 0x123456u);
    EXPECT_EQ(image.getRgbPixel(2, 0), 0x000000u);
    EXPECT_EQ(image.getRgbPixel(3, 0), 0xFEFD00u);
}

TEST(BitmapImage, reservedFormats_readAs0)
{
    Bytes bytes(16, 0xFF);
    for (const int format : {INT_MIN, -1, 0, 1, 8, 9, INT_MAX}) {
        EXPECT_EQ(view(bytes, 1, 1, format).getRgbPixel(0, 0), 0u);
        EXPECT_EQ(view(bytes, 1, 1, format, 256).get1BitPixel(0, 0), 0);
    }
}

TEST(BitmapImage, outside_readsAs0InEveryFormat)
{
    Bytes white(16, 0xFF);
    Bytes black(16, 0x00);
    for (int format = 2; format <= 7; ++format) {
        const BitmapImage bright = view(white, 2, 2, format);
        const BitmapImage dark = view(black, 2, 2, format);
        EXPECT_NE(bright.getRgbPixel(1, 1), 0u);
        for (const auto& [x, y] : {std::pair{-1, 0}, {0, -1}, {2, 0}, {0, 2}, {INT_MIN, 0}, {0, INT_MAX}}) {
            EXPECT_EQ(bright.getRgbPixel(x, y), 0u);
            EXPECT_EQ(dark.get1BitPixel(x, y), 0);
        }
    }
}

TEST(BitmapImage, imageWithoutPixels_readsNothing)
{
    for (const auto& [width, height] : {std::pair{0, 5}, {5, 0}, {-1, 5}, {5, -1}, {0, 0}}) {
        for (int format = 0; format <= 8; ++format) {
            const BitmapImage image{nullptr, width, height, format, 100};
            EXPECT_EQ(image.getRgbPixel(0, 0), 0u);
            EXPECT_EQ(image.get1BitPixel(0, 0), 0);
        }
    }
}

// A vector of exactly the picture's bytes: the address sanitizer sees one too many.
TEST(BitmapImage, lastPixel_isTheLastByteOfTheBuffer)
{
    const int bitsOfFormat[] = {0, 0, 8, 8, 12, 16, 24, 32};
    for (int format = 2; format <= 7; ++format) {
        for (int width = 1; width <= 5; ++width) {
            for (int height = 1; height <= 5; ++height) {
                Bytes bytes(static_cast<std::size_t>((bitsOfFormat[format] * width * height + 7) / 8), 0xFF);
                EXPECT_NE(view(bytes, width, height, format).getRgbPixel(width - 1, height - 1), 0u);
            }
        }
    }
}

TEST(BitmapImage, oneBitPixel_isGreyBelowTheThreshold)
{
    Bytes bytes = {0, 99, 100, 255};
    const BitmapImage image = view(bytes, 2, 2, 2, 100);
    EXPECT_EQ(image.get1BitPixel(0, 0), 1);
    EXPECT_EQ(image.get1BitPixel(1, 0), 1);
    EXPECT_EQ(image.get1BitPixel(0, 1), 0);
    EXPECT_EQ(image.get1BitPixel(1, 1), 0);
}

TEST(BitmapImage, oneBitThreshold_isComparedAsAnInt)
{
    Bytes bytes = {0, 255};
    EXPECT_EQ(view(bytes, 2, 1, 2, 0).get1BitPixel(0, 0), 0);
    EXPECT_EQ(view(bytes, 2, 1, 2, -1).get1BitPixel(0, 0), 0);
    EXPECT_EQ(view(bytes, 2, 1, 2, 256).get1BitPixel(1, 0), 1);
}

TEST(BitmapImage, oneBitPixelOfAnRgb565Image_isAlways0)
{
    Bytes bytes(8, 0);
    const BitmapImage image = view(bytes, 2, 2, 5, 256);
    for (int y = 0; y < 2; ++y) {
        for (int x = 0; x < 2; ++x)
            EXPECT_EQ(image.get1BitPixel(x, y), 0);
    }
}

TEST(BitmapImage, oneBitPixelOfAnyColourImage_is0)
{
    Bytes bytes(4, 0);
    for (const int format : {3, 4, 5, 6, 7})
        EXPECT_EQ(view(bytes, 1, 1, format, 256).get1BitPixel(0, 0), 0);
}

} // namespace Vantor
