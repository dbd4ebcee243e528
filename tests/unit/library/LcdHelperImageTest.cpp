// Images copied into images.

#include "libMorvaneHostUsb/LcdHelper.h"

#include "tests/support/PackedBytes.h"
#include "tests/support/Random.h"
#include "tests/support/Seeds.h"

#include <algorithm>
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
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

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

namespace {

// Word for word, a pixel of the source after the other.
void copyLiterally(BitmapImage& target, const BitmapImage& source, int x, int y)
{
    for (int r = 0; r < source.height; ++r) {
        for (int c = 0; c < source.width; ++c) {
            const int column = x + c;
            const int row = y + r;
            if (column < 0 || column >= target.width || row < 0 || row >= target.height)
                continue;
            const unsigned int colour = source.getRgbPixel(c, r);
            const std::uint8_t parts[] = {static_cast<std::uint8_t>(colour >> 16),
                                          static_cast<std::uint8_t>(colour >> 8), static_cast<std::uint8_t>(colour)};
            const int index = column + target.width * row;
            if (target.format == BitmapImage::Rgb565) {
                const int word = parts[0] / 8 * 2048 + parts[1] / 4 * 32 + parts[2] / 8;
                target.data[2 * index] = static_cast<std::uint8_t>(word % 256);
                target.data[2 * index + 1] = static_cast<std::uint8_t>(word / 256);
            } else if (target.format == BitmapImage::Rgb888) {
                std::copy(std::begin(parts), std::end(parts), target.data + 3 * index % 65536);
            } else if (target.format == BitmapImage::Rgb444) {
                std::uint8_t* const pixel = target.data + index * 12 / 8;
                const int nibbles[] = {parts[0] / 16, parts[1] / 16, parts[2] / 16};
                const bool isEven = column % 2 == 0;
                pixel[0] = static_cast<std::uint8_t>(isEven ? nibbles[0] * 16 + nibbles[1] : pixel[0] | nibbles[0]);
                pixel[1] = static_cast<std::uint8_t>(isEven ? nibbles[2] * 16 : nibbles[1] * 16 + nibbles[2]);
            }
        }
    }
}

} // namespace

TEST(LcdHelperImage, imagesOfAnyTwoFormats_areTheLiteralCopy)
{
    runSeeds(1, [](unsigned int seed) {
        Random random(seed);
        for (int round = 0; round < 3000 && !HasFailure(); ++round) {
            const auto image = [&random] {
                const int width = static_cast<int>(random.below(20));
                const int height = static_cast<int>(random.below(12));
                const int format = static_cast<int>(random.below(9));
                return Image(width, height, format, random.bytes(std::size_t{4} * 20 * 12 + 2));
            };
            const Image source = image();
            Image target = image();
            Bytes expected = target.m_bytes;
            BitmapImage literal = target.m_view;
            literal.data = expected.data();
            const int x = static_cast<int>(random.below(40)) - 20;
            const int y = static_cast<int>(random.below(24)) - 12;
            copyLiterally(literal, source.m_view, x, y);
            LcdHelper::compositeToLcd(&target.m_view, source.m_view, x, y);
            ASSERT_EQ(target.m_bytes, expected)
                << "round " << round << ": format " << source.m_view.format << " to " << target.m_view.format;
        }
    });
}

// Vectors of exactly the pictures' bytes: the address sanitizer sees one too many.
// Pixel by pixel in the same order, so that what is read has been written before.
TEST(LcdHelperImage, imageWithinItsOwnMemory_isTheLiteralCopy)
{
    runSeeds(1, [](unsigned int seed) {
        Random random(seed);
        for (int from = 2; from <= 7; ++from) {
            for (const int to : {4, 5, 6}) {
                for (const int apart : {0, 1, 2, 3, 30}) {
                    const Bytes before = random.bytes(400);
                    Bytes bytes = before;
                    Bytes literalBytes = before;
                    const auto copyWithin = [&](Bytes& memory, auto copy) {
                        const BitmapImage source{memory.data(), 7, 5, from, 0};
                        BitmapImage target{memory.data() + apart, 7, 5, to, 0};
                        copy(target, source);
                    };
                    copyWithin(bytes, [](BitmapImage& target, const BitmapImage& source) {
                        LcdHelper::compositeToLcd(&target, source, 1, 0);
                    });
                    copyWithin(literalBytes, [](BitmapImage& target, const BitmapImage& source) {
                        copyLiterally(target, source, 1, 0);
                    });
                    ASSERT_EQ(bytes, literalBytes) << "from " << from << " to " << to << ", apart " << apart;
                }
            }
        }
    });
}

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
