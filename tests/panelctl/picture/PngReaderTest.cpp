#include "panelctl/picture/PngReader.h"
#include "panelctl/terminal/Failure.h"
#include "tests/support/PngSample.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::MatchesRegex;

Bytes readBack(const PngSample& sample)
{
    const TemporaryFile file(sample.encode());
    const GreyPicture picture = PngReader::read(file.getPath());
    EXPECT_EQ(picture.getWidth(), sample.width);
    EXPECT_EQ(picture.getHeight(), sample.height);
    return picture.getPixels();
}

// What is said of a file with this content, without its name.
std::string complaintAbout(const std::string& content)
{
    const TemporaryFile file(content);
    try {
        PngReader::read(file.getPath());
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.getExitCode(), 2);
        const std::string text = failure.what();
        const std::string name = "'" + file.getPath() + "' ";
        EXPECT_EQ(text.compare(0, name.size(), name), 0) << text;
        return text.substr(name.size());
    }
    return "read without complaint";
}

std::string anyPng()
{
    return encodeGrey(20, 20, Bytes(400, 77));
}

} // namespace

TEST(PngReader, grey8_isUnchanged)
{
    Bytes shades(256);
    for (std::size_t i = 0; i < shades.size(); ++i)
        shades[i] = static_cast<std::uint8_t>(i);
    EXPECT_THAT(readBack({16, 16, PngSample::Grey, 8, shades}), ElementsAreArray(shades));
}

TEST(PngReader, statedGamma_isIgnored)
{
    PngSample sample{3, 1, PngSample::Grey, 8, {10, 100, 200}};
    sample.gamma = 1.0;
    EXPECT_THAT(readBack(sample), ElementsAre(10, 100, 200));
}

TEST(PngReader, greyBelow8Bits_isSpread)
{
    EXPECT_THAT(readBack({3, 1, PngSample::Grey, 1, {0xA0}}), ElementsAre(255, 0, 255));
    EXPECT_THAT(readBack({4, 1, PngSample::Grey, 2, {0x1B}}), ElementsAre(0, 85, 170, 255));
    EXPECT_THAT(readBack({2, 1, PngSample::Grey, 4, {0x1F}}), ElementsAre(17, 255));
}

TEST(PngReader, grey16_isRounded)
{
    // 0x0180 is 1.494 of 255, 0x0181 is 1.498, 0x0182 is 1.502.
    EXPECT_THAT(readBack({5, 1, PngSample::Grey, 16, {0x01, 0x80, 0x01, 0x81, 0x01, 0x82, 0xFF, 0xFF, 0x80, 0x80}}),
                ElementsAre(1, 1, 2, 255, 128));
}

TEST(PngReader, rgb8_isWeighed)
{
    EXPECT_THAT(readBack({4, 1, PngSample::Rgb, 8, {255, 0, 0, 0, 255, 0, 0, 0, 255, 9, 9, 9}}),
                ElementsAre(76, 150, 29, 9));
}

TEST(PngReader, rgb16_isRoundedThenWeighed)
{
    EXPECT_THAT(readBack({1, 1, PngSample::Rgb, 16, {0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00}}), ElementsAre(76));
}

TEST(PngReader, palette_isLookedUp)
{
    PngSample sample{4, 1, PngSample::Palette, 2, {0x1B}};
    sample.palette = {{0, 0, 0}, {255, 0, 0}, {0, 255, 0}, {200, 200, 200}};
    EXPECT_THAT(readBack(sample), ElementsAre(0, 76, 150, 200));
}

TEST(PngReader, transparentPalette_liesOnWhite)
{
    PngSample sample{2, 1, PngSample::Palette, 8, {0, 1}};
    sample.palette = {{0, 0, 0}, {0, 0, 0}};
    sample.paletteAlpha = {0};
    EXPECT_THAT(readBack(sample), ElementsAre(255, 0));
}

TEST(PngReader, transparentGrey_liesOnWhite)
{
    PngSample sample{2, 1, PngSample::Grey, 8, {0, 1}};
    sample.hasTransparentGrey = true;
    EXPECT_THAT(readBack(sample), ElementsAre(255, 1));
}

TEST(PngReader, alpha_liesOnWhite)
{
    // 100 of alpha 51: 0.2 × 100 + 0.8 × 255 = 224.
    EXPECT_THAT(readBack({3, 1, PngSample::GreyAlpha, 8, {100, 51, 100, 0, 100, 255}}), ElementsAre(224, 255, 100));
    // Green 0 with alpha 128: (255 × 127 + 127) / 255 = 127 in every channel.
    EXPECT_THAT(readBack({2, 1, PngSample::Rgba, 8, {0, 0, 0, 128, 255, 0, 0, 255}}), ElementsAre(127, 76));
    EXPECT_THAT(readBack({1, 1, PngSample::Rgba, 16, {0, 0, 0, 0, 0, 0, 0x80, 0x80}}), ElementsAre(127));
    EXPECT_THAT(readBack({1, 1, PngSample::GreyAlpha, 16, {0x64, 0x64, 0x33, 0x33}}), ElementsAre(224));
}

TEST(PngReader, interlaced_isTheSame)
{
    PngSample sample{11, 9, PngSample::Rgb, 8, {}};
    for (unsigned int i = 0; i < 11 * 9 * 3; ++i)
        sample.rows.push_back(static_cast<std::uint8_t>(i * 7));
    const Bytes plain = readBack(sample);
    sample.interlaced = true;
    EXPECT_THAT(readBack(sample), ElementsAreArray(plain));
}

TEST(PngReader, interlacedOneBit_isTheSame)
{
    PngSample sample{10, 3, PngSample::Grey, 1, {0xAB, 0x40, 0x12, 0x80, 0xFF, 0x00}};
    const Bytes plain = readBack(sample);
    sample.interlaced = true;
    EXPECT_THAT(readBack(sample), ElementsAreArray(plain));
}

TEST(PngReader, otherFiles_areRefused)
{
    EXPECT_EQ(complaintAbout(""), "is not a PNG file.");
    EXPECT_EQ(complaintAbout("\x89PNG"), "is not a PNG file.");
    EXPECT_EQ(complaintAbout("GIF89a is another format"), "is not a PNG file.");
}

TEST(PngReader, unreadableFile_isRefusedWithTheReason)
{
    EXPECT_THROW(
        {
            try {
                PngReader::read("/nonexistent/a.png");
            } catch (const Failure& failure) {
                EXPECT_STREQ(failure.what(), "'/nonexistent/a.png' can't be read: No such file or directory.");
                throw;
            }
        },
        Failure);
    EXPECT_THROW(
        {
            try {
                PngReader::read("/tmp");
            } catch (const Failure& failure) {
                EXPECT_STREQ(failure.what(), "'/tmp' can't be read: Is a directory.");
                throw;
            }
        },
        Failure);
}

TEST(PngReader, everyTruncation_isRefused)
{
    const std::string whole = anyPng();
    for (std::size_t size = 8; size < whole.size(); ++size)
        EXPECT_THAT(complaintAbout(whole.substr(0, size)), MatchesRegex("is a damaged PNG file: .+\\."))
            << size << " of " << whole.size();
}

TEST(PngReader, damagedPixels_areRefused)
{
    std::string file = anyPng();
    const std::size_t data = file.find("IDAT") + 8;
    file[data] = static_cast<char>(file[data] ^ 0x55);
    EXPECT_THAT(complaintAbout(file), MatchesRegex("is a damaged PNG file: .+\\."));
}

// Every byte of a small file in turn: a complaint or a picture, and nothing else.
TEST(PngReader, anyDamagedByte_isHarmless)
{
    const std::string whole = anyPng();
    for (std::size_t i = 0; i < whole.size(); ++i) {
        std::string damaged = whole;
        damaged[i] = static_cast<char>(damaged[i] ^ 0xFF);
        const TemporaryFile file(damaged);
        try {
            EXPECT_EQ(PngReader::read(file.getPath()).getPixels().size(), 400U);
        } catch (const Failure&) {
        }
    }
}

TEST(PngReader, absurdSizes_areRefusedBeforeMemoryIsTaken)
{
    const std::string rest = " pixels, at most 16384 a side and 16777216 in all are read.\n"
                             "Scale it down first: an LCD shows 255x255 of it at most.";
    PngSample wide{16385, 1, PngSample::Grey, 1, Bytes(2049)};
    EXPECT_EQ(complaintAbout(wide.encode()), "is too large: 16385x1" + rest);
    PngSample high{1, 16385, PngSample::Grey, 1, Bytes(16385)};
    EXPECT_EQ(complaintAbout(high.encode()), "is too large: 1x16385" + rest);
    PngSample large{4097, 4096, PngSample::Grey, 1, Bytes(513 * 4096)};
    EXPECT_EQ(complaintAbout(large.encode()), "is too large: 4097x4096" + rest);
}

TEST(PngReader, largestSize_isRead)
{
    const PngSample wide{16384, 1, PngSample::Grey, 1, Bytes(2048, 0xFF)};
    EXPECT_EQ(readBack(wide).back(), 255);
}

} // namespace Vantor
