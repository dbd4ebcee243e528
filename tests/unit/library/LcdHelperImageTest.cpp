// Images copied into images.

#include "libMorvaneHostUsb/LcdHelper.h"

#include "tests/support/PackedBytes.h"

#include <climits>
#include <map>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

// Bytes and their view.
struct Image {
    Image(int width, int height, int format, Bytes bytes)
        : m_bytes(std::move(bytes)), m_view{m_bytes.data(), width, height, format, 100}
    {}

    Bytes m_bytes;
    BitmapImage m_view;
};

// As many 24-bit pixels of this colour.
Image plain(int width, int height, unsigned int colour)
{
    Bytes bytes;
    for (int i = 0; i < width * height; ++i) {
        for (const unsigned int shift : {16U, 8U, 0U})
            bytes.push_back(static_cast<std::uint8_t>(colour >> shift));
    }
    return {width, height, BitmapImage::Rgb888, bytes};
}

// The bytes of a target of zeros after `source` has been put on it.
Bytes composited(const Image& source, int x, int y, int width, int height, int format, std::size_t size,
                 std::uint8_t fill = 0)
{
    Image target(width, height, format, Bytes(size, fill));
    LcdHelper::compositeToLcd(&target.m_view, source.m_view, x, y);
    return target.m_bytes;
}

} // namespace

// 0x12 >> 3 = 2, 0x34 >> 2 = 13, 0x56 >> 3 = 10: 00010 001101 01010 = 0x11AA.
TEST(LcdHelperImage, rgb565Target_takesTheUpperBitsLowByteFirst)
{
    EXPECT_EQ(composited(plain(1, 1, 0x123456), 1, 0, 2, 1, 5, 4), (Bytes{0, 0, 0xAA, 0x11}));
}

TEST(LcdHelperImage, rgb888Target_takesTheColourAsItIs)
{
    EXPECT_EQ(composited(plain(1, 1, 0x123456), 0, 1, 1, 2, 6, 6), (Bytes{0, 0, 0, 0x12, 0x34, 0x56}));
}

TEST(LcdHelperImage, rgb444Target_takesTheUpperNibbles)
{
    Image source(2, 1, BitmapImage::Rgb888, {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC});
    EXPECT_EQ(composited(source, 0, 0, 2, 1, 4, 3), (Bytes{0x13, 0x57, 0x9B}));
}

TEST(LcdHelperImage, rgb444EvenColumn_writesBothBytesWhole)
{
    EXPECT_EQ(composited(plain(1, 1, 0x123456), 0, 0, 2, 1, 4, 3, 0xFF), (Bytes{0x13, 0x50, 0xFF}));
}

TEST(LcdHelperImage, rgb444OddColumn_isAddedToTheSharedByte)
{
    EXPECT_EQ(composited(plain(1, 1, 0x123456), 1, 0, 2, 1, 4, 3, 0xFF), (Bytes{0xFF, 0xFF, 0x35}));
    EXPECT_EQ(composited(plain(1, 1, 0x123456), 1, 0, 2, 1, 4, 3, 0x82), (Bytes{0x82, 0x83, 0x35}));
}

// Three columns of R 1, G 3, B 5. Row 0: 13 51 35 13 5-. Row 1 begins at byte 4 with an
// even column, which overwrites the blue of the pixel before: 13 50, then at byte 6 an
// odd one: 01 35, then at byte 7 an even one: 13 50.
TEST(LcdHelperImage, rgb444OddWidth_overlapsOnOddRows)
{
    EXPECT_EQ(composited(plain(3, 2, 0x123456), 0, 0, 3, 2, 4, 9),
              (Bytes{0x13, 0x51, 0x35, 0x13, 0x13, 0x50, 0x01, 0x13, 0x50}));
}

// Pixel 21845 is the last whose first byte, 65535, has 16 bits; pixel 21846, at byte
// 65538, lands at byte 2.
TEST(LcdHelperImage, rgb888TargetIndex_isCutTo16Bits)
{
    Bytes expected(66000, 0);
    expected[65535] = 0x12;
    expected[65536] = 0x34;
    expected[65537] = 0x56;
    EXPECT_TRUE(composited(plain(1, 1, 0x123456), 45, 109, 200, 110, 6, 66000) == expected);
    expected.assign(66000, 0);
    expected[2] = 0x12;
    expected[3] = 0x34;
    expected[4] = 0x56;
    EXPECT_TRUE(composited(plain(1, 1, 0x123456), 46, 109, 200, 110, 6, 66000) == expected);
}

TEST(LcdHelperImage, rgb565TargetIndex_isNotCut)
{
    Bytes expected(80000, 0);
    expected[79998] = 0xAA;
    expected[79999] = 0x11;
    EXPECT_TRUE(composited(plain(1, 1, 0x123456), 199, 199, 200, 200, 5, 80000) == expected);
}

TEST(LcdHelperImage, otherTargetFormats_stayUnchanged)
{
    for (const int format : {INT_MIN, -1, 0, 1, 2, 3, 7, 8, INT_MAX})
        EXPECT_EQ(composited(plain(2, 2, 0x123456), 0, 0, 2, 2, format, 16, 0x77), Bytes(16, 0x77));
}

TEST(LcdHelperImage, sourceFormats_areReadAsColours)
{
    // Gray8: the byte lands in blue, 0xC8 >> 3 = 25.
    EXPECT_EQ(composited({1, 1, 2, {0xC8}}, 0, 0, 1, 1, 5, 2), (Bytes{25, 0}));
    EXPECT_EQ(composited({1, 1, 2, {0xC8}}, 0, 0, 1, 1, 6, 3), (Bytes{0, 0, 0xC8}));
    EXPECT_EQ(composited({1, 1, 3, {0b101'011'10}}, 0, 0, 1, 1, 6, 3), (Bytes{182, 109, 170}));
    EXPECT_EQ(composited({1, 1, 4, {0x12, 0x30}}, 0, 0, 1, 1, 6, 3), (Bytes{0x11, 0x22, 0x33}));
    EXPECT_EQ(composited({1, 1, 5, {0xC3, 0xA5}}, 0, 0, 1, 1, 6, 3), (Bytes{164, 186, 24}));
    EXPECT_EQ(composited({1, 1, 7, {200, 100, 50, 128}}, 0, 0, 1, 1, 6, 3), (Bytes{100, 50, 25}));
}

TEST(LcdHelperImage, sourceOfAReservedFormat_isBlack)
{
    EXPECT_EQ(composited({1, 1, 0, {0xFF}}, 0, 0, 1, 1, 6, 3, 0xEE), (Bytes{0, 0, 0}));
    EXPECT_EQ(composited({1, 1, 1, {0xFF}}, 0, 0, 1, 1, 6, 3, 0xEE), (Bytes{0, 0, 0}));
}

TEST(LcdHelperImage, imageThatReachesPastTheTarget_isClipped)
{
    const Image source(2, 2, BitmapImage::Rgb888, {1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4});
    EXPECT_EQ(composited(source, -1, -1, 1, 2, 6, 6), (Bytes{4, 4, 4, 0, 0, 0}));
    EXPECT_EQ(composited(source, -1, 1, 1, 2, 6, 6), (Bytes{0, 0, 0, 2, 2, 2}));
    EXPECT_EQ(composited(source, 1, -1, 2, 1, 6, 6), (Bytes{0, 0, 0, 3, 3, 3}));
    EXPECT_EQ(composited(source, 1, 0, 2, 1, 6, 6), (Bytes{0, 0, 0, 1, 1, 1}));
}

TEST(LcdHelperImage, imageFarFromTheTarget_drawsNothing)
{
    for (const int far : {INT_MIN, -1000, -2, 2, 1000, INT_MAX}) {
        for (const auto& [x, y] : {std::pair{far, 0}, {0, far}, {far, far}})
            EXPECT_EQ(composited(plain(2, 2, 0xFFFFFF), x, y, 2, 2, 6, 12), Bytes(12, 0));
    }
}

TEST(LcdHelperImage, imagesWithoutPixels_drawNothing)
{
    for (const auto& [width, height] : {std::pair{0, 2}, {2, 0}, {-1, 2}, {2, -1}}) {
        const BitmapImage none{nullptr, width, height, BitmapImage::Rgb888, 100};
        Image image = plain(2, 2, 0x010203);
        const Bytes before = image.m_bytes;
        LcdHelper::compositeToLcd(&image.m_view, none, 0, 0);
        EXPECT_EQ(image.m_bytes, before);
        BitmapImage target = none;
        LcdHelper::compositeToLcd(&target, image.m_view, 0, 0);
    }
}

// Vectors of exactly the pictures' bytes: the address sanitizer sees one too many.
TEST(LcdHelperImage, lastPixelOfTheTarget_isTheLastByteOfItsBuffer)
{
    const std::map<int, int> bitsOfFormat = {{4, 12}, {5, 16}, {6, 24}};
    for (const auto& [format, bits] : bitsOfFormat) {
        for (int width = 1; width <= 5; ++width) {
            for (int height = 1; height <= 5; ++height) {
                const auto size = static_cast<std::size_t>((bits * width * height + 7) / 8);
                EXPECT_NE(composited(plain(width, height, 0xFFFFFF), 0, 0, width, height, format, size),
                          Bytes(size, 0));
            }
        }
    }
}

} // namespace Vantor
