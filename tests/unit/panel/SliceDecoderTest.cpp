#include "simulator/panel/SliceDecoder.h"
#include "tests/support/Random.h"
#include "tests/support/Seeds.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using Pixels = std::vector<std::uint32_t>;

constexpr PacketType raw = PacketType::LcdSlice;
constexpr PacketType encoded = PacketType::EncodedLcdSlice;
constexpr std::uint32_t on = 0x000000;
constexpr std::uint32_t off = 0xFFFFFF;
const Bytes marker{0xFF, 0xFF, 0xFF, 0xFF};

// A slice for LCD 3 at 5,6.
Bytes slice(std::uint8_t width, std::uint8_t rows, std::uint8_t bitsPerPixel, const Bytes& data)
{
    return joined({{3, 0, 5, 6, width, rows, bitsPerPixel}, data});
}

Pixels pixelsOf(PacketType type, const Bytes& payload)
{
    const auto result = SliceDecoder::decode(type, payload);
    EXPECT_EQ(result.violation, "");
    return result.slice ? result.slice->pixels : Pixels{};
}

std::string violationOf(PacketType type, const Bytes& payload)
{
    const auto result = SliceDecoder::decode(type, payload);
    EXPECT_EQ(result.slice.has_value(), result.violation.empty());
    return result.violation;
}

TEST(SliceDecoder, header_sevenBytesLittleEndian)
{
    const auto result = SliceDecoder::decode(raw, {0x02, 0x01, 7, 9, 4, 2, 1, 0xA5});
    ASSERT_TRUE(result.slice);
    EXPECT_EQ(result.slice->lcd, 0x0102);
    EXPECT_EQ(result.slice->x, 7);
    EXPECT_EQ(result.slice->y, 9);
    EXPECT_EQ(result.slice->width, 4);
    EXPECT_EQ(result.slice->rows, 2);
}

TEST(SliceDecoder, raw1Bit_mostSignificantBitFirstAndOnIsBlack)
{
    // 1010 0101
    EXPECT_THAT(pixelsOf(raw, slice(4, 2, 1, {0xA5})), ElementsAre(on, off, on, off, off, on, off, on));
}

TEST(SliceDecoder, raw1BitOddWidth_rowsFollowWithoutPadding)
{
    // 5 × 3 = 15 bits, 1 byte: 10110 110, and the rest is cut off.
    EXPECT_THAT(pixelsOf(raw, slice(5, 3, 1, {0xB6})), ElementsAre(on, off, on, on, off, on, on, off));
    // 5 × 8 = 40 bits, 5 bytes: nothing is missing.
    EXPECT_EQ(pixelsOf(raw, slice(5, 8, 1, {0, 0, 0, 0, 1})).size(), 40u);
    EXPECT_EQ(pixelsOf(raw, slice(5, 8, 1, {0, 0, 0, 0, 1})).back(), on);
}

TEST(SliceDecoder, rawBitsLostAtTheEnd_thosePixelsAreMissing)
{
    // 3 × 3 = 9 bits, 1 byte.
    EXPECT_THAT(pixelsOf(raw, slice(3, 3, 1, {0xB6})), ElementsAre(on, off, on, on, off, on, on, off));
    // 7 bits make no byte at all.
    EXPECT_THAT(pixelsOf(raw, slice(7, 1, 1, {})), IsEmpty());
    // 3 × 12 = 36 bits, 4 bytes: the third pixel lacks its blue.
    EXPECT_THAT(pixelsOf(raw, slice(3, 1, 12, {0x12, 0x34, 0x56, 0x78})), ElementsAre(0x112233, 0x445566));
    // 12 bits, 1 byte: blue is missing again.
    EXPECT_THAT(pixelsOf(raw, slice(1, 1, 12, {0x12})), IsEmpty());
}

TEST(SliceDecoder, raw8Bit_threeThreeTwo)
{
    // 0x92 = 100 100 10: 4 × 255 / 7 = 145 twice, 2 × 85 = 170.
    EXPECT_THAT(pixelsOf(raw, slice(3, 2, 8, {0x00, 0xE0, 0x1C, 0x03, 0xFF, 0x92})),
                ElementsAre(0x000000, 0xFF0000, 0x00FF00, 0x0000FF, 0xFFFFFF, 0x9191AA));
}

TEST(SliceDecoder, raw12Bit_threeNibblesAcrossRows)
{
    EXPECT_THAT(pixelsOf(raw, slice(1, 4, 12, {0xF0, 0x01, 0x23, 0x0A, 0x04, 0x56})),
                ElementsAre(0xFF0000, 0x112233, 0x00AA00, 0x445566));
}

TEST(SliceDecoder, raw16Bit_lowByteFirst)
{
    // 0xF800, 0x07E0, 0x001F, and 0x8410: 16 × 255 / 31 = 131, 32 × 255 / 63 = 129.
    EXPECT_THAT(pixelsOf(raw, slice(2, 2, 16, {0x00, 0xF8, 0xE0, 0x07, 0x1F, 0x00, 0x10, 0x84})),
                ElementsAre(0xFF0000, 0x00FF00, 0x0000FF, 0x838183));
}

TEST(SliceDecoder, raw24Bit_redGreenBlue)
{
    EXPECT_THAT(pixelsOf(raw, slice(1, 2, 24, {0x12, 0x34, 0x56, 0xFE, 0xDC, 0xBA})), ElementsAre(0x123456, 0xFEDCBA));
}

TEST(SliceDecoder, rawLargestSlice_decoded)
{
    // 255 × 255 × 1 = 65025 bits, 8128 bytes, 65024 pixels.
    EXPECT_EQ(pixelsOf(raw, slice(255, 255, 1, Bytes(8128, 0xFF))), Pixels(65024, on));
}

TEST(SliceDecoder, noRowOrNoColumn_violation)
{
    EXPECT_EQ(violationOf(raw, slice(0, 5, 8, {})),
              "raw slice for LCD 3 at 5,6, 0x5, 8 bits per pixel: it has no pixels");
    EXPECT_EQ(violationOf(raw, slice(5, 0, 1, {})),
              "raw slice for LCD 3 at 5,6, 5x0, 1 bit per pixel: it has no pixels");
    EXPECT_EQ(violationOf(encoded, slice(0, 1, 24, marker)),
              "encoded slice for LCD 3 at 5,6, 0x1, 24 bits per pixel: it has no pixels");
    EXPECT_EQ(violationOf(encoded, slice(5, 0, 12, {})),
              "encoded slice for LCD 3 at 5,6, 5x0, 12 bits per pixel: it has no pixels");
}

TEST(SliceDecoder, encoded1Bit_everyValueButZeroIsOn)
{
    EXPECT_THAT(pixelsOf(encoded, slice(4, 2, 1,
                                        joined({marker,
                                                {3, 0, 0, 1},
                                                {1, 0, 0, 0},
                                                marker,
                                                {1, 0x80, 0, 0},
                                                {2, 0, 0, 0},
                                                {1, 0xFF, 0xFF, 0xFF}}))),
                ElementsAre(on, on, on, off, on, off, off, on));
}

TEST(SliceDecoder, encodedColours_codesOfTheirDepth)
{
    EXPECT_THAT(pixelsOf(encoded, slice(3, 1, 8, joined({marker, {2, 0, 0, 0xE0}, {1, 0, 0, 0x92}}))),
                ElementsAre(0xFF0000, 0xFF0000, 0x9191AA));
    EXPECT_THAT(pixelsOf(encoded, slice(3, 1, 12, joined({marker, {1, 0, 0x01, 0x23}, {2, 0, 0x0F, 0x00}}))),
                ElementsAre(0x112233, 0xFF0000, 0xFF0000));
    EXPECT_THAT(pixelsOf(encoded, slice(2, 1, 16, joined({marker, {1, 0, 0xF8, 0x00}, {1, 0, 0x84, 0x10}}))),
                ElementsAre(0xFF0000, 0x838183));
    EXPECT_THAT(pixelsOf(encoded, slice(2, 1, 24, joined({marker, {2, 0x12, 0x34, 0x56}}))),
                ElementsAre(0x123456, 0x123456));
}

TEST(SliceDecoder, encodedBitsAboveTheCode_ignored)
{
    EXPECT_THAT(pixelsOf(encoded, slice(1, 1, 8, joined({marker, {1, 0x12, 0x34, 0xE0}}))), ElementsAre(0xFF0000));
    EXPECT_THAT(pixelsOf(encoded, slice(1, 1, 12, joined({marker, {1, 0xFF, 0xF1, 0x23}}))), ElementsAre(0x112233));
    EXPECT_THAT(pixelsOf(encoded, slice(1, 1, 16, joined({marker, {1, 0xFF, 0x07, 0xE0}}))), ElementsAre(0x00FF00));
}

TEST(SliceDecoder, encodedRunOf255_decodedUnlessItIsWhite)
{
    EXPECT_EQ(pixelsOf(encoded, slice(255, 1, 24, joined({marker, {255, 0xFF, 0xFF, 0xFE}}))), Pixels(255, 0xFFFFFE));
    EXPECT_EQ(pixelsOf(encoded, slice(254, 1, 24, joined({marker, {254, 0xFF, 0xFF, 0xFF}}))), Pixels(254, 0xFFFFFF));
    EXPECT_EQ(violationOf(encoded, slice(255, 1, 24, joined({marker, {255, 0xFF, 0xFF, 0xFF}}))),
              "encoded slice for LCD 3 at 5,6, 255x1, 24 bits per pixel: row 0: a row marker after 0 of 255 pixels");
    // In 1 bit the value is the same, and so is the word.
    EXPECT_EQ(violationOf(encoded, slice(255, 1, 1, joined({marker, marker}))),
              "encoded slice for LCD 3 at 5,6, 255x1, 1 bit per pixel: row 0: a row marker after 0 of 255 pixels");
}

TEST(SliceDecoder, payloadShorterThanItsHeader_violation)
{
    EXPECT_EQ(violationOf(raw, {}), "raw slice of 0 bytes, its header has 7");
    EXPECT_EQ(violationOf(encoded, {3}), "encoded slice of 1 byte, its header has 7");
    EXPECT_EQ(violationOf(raw, {3, 0, 5, 6, 0, 0}), "raw slice of 6 bytes, its header has 7");
    EXPECT_EQ(violationOf(raw, {3, 0, 5, 6, 1, 1, 1}), "");
}

TEST(SliceDecoder, depthsButFive_violation)
{
    for (unsigned int depth = 0; depth < 256; ++depth) {
        const bool known = depth == 1 || depth == 8 || depth == 12 || depth == 16 || depth == 24;
        const auto bitsPerPixel = static_cast<std::uint8_t>(depth);
        EXPECT_EQ(violationOf(raw, slice(8, 1, bitsPerPixel, Bytes(depth))).empty(), known) << depth;
        EXPECT_EQ(violationOf(encoded, slice(1, 1, bitsPerPixel, joined({marker, {1, 0, 0, 0}}))).empty(), known)
            << depth;
    }
    EXPECT_EQ(violationOf(raw, slice(2, 2, 2, {0})),
              "raw slice for LCD 3 at 5,6, 2x2, 2 bits per pixel: the depths are 1, 8, 12, 16 and 24");
}

TEST(SliceDecoder, rawBytesMoreOrFewer_violation)
{
    // 5 × 3 = 15 bits: one byte, neither none nor the two that padding would make.
    EXPECT_EQ(violationOf(raw, slice(5, 3, 1, {})),
              "raw slice for LCD 3 at 5,6, 5x3, 1 bit per pixel: 0 bytes of pixels, its size makes 1");
    EXPECT_EQ(violationOf(raw, slice(5, 3, 1, {0, 0})),
              "raw slice for LCD 3 at 5,6, 5x3, 1 bit per pixel: 2 bytes of pixels, its size makes 1");
    EXPECT_EQ(violationOf(raw, slice(255, 255, 24, {0})),
              "raw slice for LCD 3 at 5,6, 255x255, 24 bits per pixel: 1 byte of pixels, its size makes 195075");
}

TEST(SliceDecoder, encodedNoWholeWords_violation)
{
    EXPECT_EQ(violationOf(encoded, slice(1, 1, 8, joined({marker, {1, 0, 0}}))),
              "encoded slice for LCD 3 at 5,6, 1x1, 8 bits per pixel: 7 bytes of run-length words, a word has 4");
}

// What is said behind the slice's description, of 4 × 2 pixels in 8 bits.
std::string complaint(const Bytes& words)
{
    const std::string what = violationOf(encoded, slice(4, 2, 8, words));
    const std::string start = "encoded slice for LCD 3 at 5,6, 4x2, 8 bits per pixel: ";
    EXPECT_EQ(what.substr(0, start.size()), start);
    return what.size() > start.size() ? what.substr(start.size()) : "";
}

TEST(SliceDecoder, encodedRowsFewerOrMore_violation)
{
    const Bytes row = joined({marker, {4, 0, 0, 7}});
    EXPECT_EQ(complaint({}), "the data ends after 0 of 2 rows");
    EXPECT_EQ(complaint(row), "the data ends after 1 of 2 rows");
    EXPECT_EQ(complaint(joined({row, row, row})), "8 bytes behind the last of 2 rows");
    EXPECT_EQ(complaint(joined({row, row, marker})), "4 bytes behind the last of 2 rows");
    EXPECT_EQ(complaint(joined({row, row, {1, 0, 0, 7}})), "4 bytes behind the last of 2 rows");
    EXPECT_EQ(violationOf(encoded, slice(4, 1, 8, {})),
              "encoded slice for LCD 3 at 5,6, 4x1, 8 bits per pixel: the data ends after 0 of 1 row");
}

TEST(SliceDecoder, encodedRowWithoutMarker_violation)
{
    EXPECT_EQ(complaint({4, 0, 0, 7}), "row 0 does not begin with a row marker");
    EXPECT_EQ(complaint(joined({marker, {4, 0, 0, 7}, {4, 0, 0, 7}})), "row 1 does not begin with a row marker");
    EXPECT_EQ(complaint({0xFE, 0xFF, 0xFF, 0xFF}), "row 0 does not begin with a row marker");
    EXPECT_EQ(complaint({0xFF, 0xFF, 0xFF, 0x7F}), "row 0 does not begin with a row marker");
}

TEST(SliceDecoder, encodedRunsNotTheWidth_violation)
{
    EXPECT_EQ(complaint(marker), "row 0: the data ends after 0 of 4 pixels");
    EXPECT_EQ(complaint(joined({marker, {3, 0, 0, 7}})), "row 0: the data ends after 3 of 4 pixels");
    EXPECT_EQ(complaint(joined({marker, {3, 0, 0, 7}, marker})), "row 0: a row marker after 3 of 4 pixels");
    EXPECT_EQ(complaint(joined({marker, {3, 0, 0, 7}, {2, 0, 0, 7}})), "row 0: a run of 2 after 3 of 4 pixels");
    EXPECT_EQ(complaint(joined({marker, {4, 0, 0, 7}, marker, {5, 0, 0, 7}})), "row 1: a run of 5 after 0 of 4 pixels");
}

TEST(SliceDecoder, encodedRunOfZero_violation)
{
    EXPECT_EQ(complaint(joined({marker, {2, 0, 0, 7}, {0, 0, 0, 7}, {2, 0, 0, 7}})),
              "row 0: a run of 0 after 2 of 4 pixels");
    // Behind a whole row there is no room for it either.
    EXPECT_EQ(complaint(joined({marker, {4, 0, 0, 7}, {0, 0, 0, 7}})), "row 1 does not begin with a row marker");
}

TEST(SliceDecoder, everyTruncation_oneViolation)
{
    const Bytes row = joined({marker, {1, 0, 0, 7}, {3, 0, 0, 8}});
    const Bytes words = slice(4, 2, 8, joined({row, row}));
    const Bytes packed = slice(4, 2, 8, Bytes(8));
    for (std::size_t size = 0; size < words.size(); ++size)
        EXPECT_NE(violationOf(encoded, {words.begin(), words.begin() + static_cast<std::ptrdiff_t>(size)}), "") << size;
    for (std::size_t size = 0; size < packed.size(); ++size)
        EXPECT_NE(violationOf(raw, {packed.begin(), packed.begin() + static_cast<std::ptrdiff_t>(size)}), "") << size;
}

TEST(SliceDecoder, noise_neverMorePixelsThanItsSize)
{
    runSeeds(1, [](unsigned int seed) {
        constexpr std::uint8_t depths[] = {1, 8, 12, 16, 24, 7};
        Random noise(seed);
        int sound = 0;
        for (int i = 0; i < (slowBuild ? 4'000 : 20'000); ++i) {
            Bytes payload(noise.below(60));
            for (auto& byte : payload)
                byte = static_cast<std::uint8_t>(noise.oneIn(3) ? 0xFF : noise.below(5));
            if (payload.size() > 6)
                payload[6] = depths[noise.below(6)];
            if (payload.size() > 6 && noise.oneIn(2)) // the size that the header makes, which is rare else
                payload.resize(7 + std::size_t{payload[4]} * payload[5] * payload[6] / 8);
            for (const PacketType type : {raw, encoded}) {
                const auto result = SliceDecoder::decode(type, payload);
                ASSERT_NE(result.slice.has_value(), !result.violation.empty());
                if (!result.slice)
                    continue;
                ++sound;
                ASSERT_LE(result.slice->pixels.size(), std::size_t{result.slice->width} * result.slice->rows);
            }
        }
        EXPECT_GT(sound, 100);
    });
}

} // namespace
} // namespace Vantor
