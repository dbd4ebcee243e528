#include "simulator/web/ScreenPatch.h"

#include <gtest/gtest.h>

namespace Vantor {

namespace {

constexpr std::uint32_t white = 0xFFFFFF;

} // namespace

using Pixels = std::vector<std::uint32_t>;
using Bytes = std::vector<std::uint8_t>;

TEST(ScreenPatch, twoColours_areABitAPixel)
{
    // 0 1 1 / 0 0 1 / 1 1 0 of white and black: 01100111 0
    const ScreenPatch patch = ScreenPatch::make({4, 5, 3, 3}, {white, 0, 0, white, white, 0, 0, 0, white});
    EXPECT_EQ(patch.colours, (Pixels{white, 0}));
    EXPECT_EQ(patch.bytes, (Bytes{0x67, 0x00}));
    EXPECT_EQ(patch.asJson(), "\"x\":4,\"y\":5,\"columns\":3,\"rows\":3,\"colours\":[\"#ffffff\",\"#000000\"],"
                              "\"bits\":\"ZwA=\"");
}

// Nine bits, in whole bytes and a rest, and back.
TEST(ScreenPatch, moreThanAByte_theRestIsBehindIt)
{
    const Pixels pixels{5, 9, 9, 5, 5, 9, 5, 9, 9}; // 01100101 1
    const ScreenPatch patch = ScreenPatch::make({0, 0, 9, 1}, pixels);
    EXPECT_EQ(patch.bytes, (Bytes{0x65, 0x80}));
    Pixels picture(9, 0);
    patch.draw(picture, 9);
    EXPECT_EQ(picture, pixels);
}

// One, two and three bytes: "M", "Ma", "Man".
TEST(ScreenPatch, base64_isPadded)
{
    const auto bitsOf = [](const Bytes& bytes) {
        const std::string text = ScreenPatch{{0, 0, 8, 1}, {0}, bytes}.asJson();
        return text.substr(text.find("\"bits\""));
    };
    EXPECT_EQ(bitsOf({'M'}), "\"bits\":\"TQ==\"");
    EXPECT_EQ(bitsOf({'M', 'a'}), "\"bits\":\"TWE=\"");
    EXPECT_EQ(bitsOf({'M', 'a', 'n'}), "\"bits\":\"TWFu\"");
    EXPECT_EQ(bitsOf({0xFB, 0xFF, 0xBF, 0xFF}), "\"bits\":\"+/+//w==\"");
}

TEST(ScreenPatch, oneColour_isNamedAlone)
{
    const ScreenPatch patch = ScreenPatch::make({0, 0, 9, 1}, Pixels(9, 0x0A0B0C));
    EXPECT_EQ(patch.colours, Pixels{0x0A0B0C});
    EXPECT_EQ(patch.bytes, (Bytes{0, 0}));
    EXPECT_EQ(patch.asJson(), "\"x\":0,\"y\":0,\"columns\":9,\"rows\":1,\"colours\":[\"#0a0b0c\"],\"bits\":\"AAA=\"");
}

TEST(ScreenPatch, moreColours_areThreeBytesAPixel)
{
    const ScreenPatch patch = ScreenPatch::make({1, 0, 3, 1}, {0x010203, 0xFF0000, 0x0000FF});
    EXPECT_TRUE(patch.colours.empty());
    EXPECT_EQ(patch.bytes, (Bytes{1, 2, 3, 0xFF, 0, 0, 0, 0, 0xFF}));
    EXPECT_EQ(patch.asJson(), "\"x\":1,\"y\":0,\"columns\":3,\"rows\":1,\"rgb\":\"AQID/wAAAAD/\"");
}

TEST(ScreenPatch, drawn_leavesTheRestAlone)
{
    Pixels picture(12, 7); // 4x3
    ScreenPatch::make({1, 1, 2, 2}, {white, 0, 0, white}).draw(picture, 4);
    EXPECT_EQ(picture, (Pixels{7, 7, 7, 7, 7, white, 0, 7, 7, 0, white, 7}));
    ScreenPatch::make({3, 0, 1, 3}, {0x010203, 0xFF0000, 0x0000FF}).draw(picture, 4);
    EXPECT_EQ(picture, (Pixels{7, 7, 7, 0x010203, 7, white, 0, 0xFF0000, 7, 0, white, 0x0000FF}));
}

} // namespace Vantor
