#include "libMorvaneHostUsb/LcdPicture.h"

#include "libMorvaneHostUsb/Log.h"
#include "tests/support/Bytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace Vantor {

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using Form = LcdPicture::Form;

constexpr std::uint8_t _ = 255; // white
constexpr std::uint8_t X = 0;   // black

LcdPicture greyPicture(const Bytes& pixels, unsigned int width, Form form = Form::Raw)
{
    LcdPicture picture(pixels.data(), width, static_cast<unsigned int>(pixels.size()) / width, BitmapImage::Gray8);
    picture.dither = LcdHelper::Threshold;
    picture.form = form;
    return picture;
}

// Whether the picture's layers are run-length words.
bool isEncoded(unsigned int width, unsigned int x, Form form = Form::Raw)
{
    const Bytes pixels(width, X);
    return greyPicture(pixels, width, form).makeLayers(0, x).front().encoded != 0;
}

std::uint8_t greyOf(const Bytes& pixel, BitmapImage::Format format)
{
    return LcdPicture(pixel.data(), 1, 1, format).toGrey().front();
}

// The log line of a picture that makes no layers.
std::string complaintAbout(const LcdPicture& picture, unsigned int x = 0, unsigned int y = 0)
{
    std::string lines;
    setLogSink([&lines](LogLevel::Level level, std::string_view text) {
        EXPECT_EQ(level, LogLevel::Error);
        lines += text;
    });
    EXPECT_TRUE(picture.makeLayers(0, x, y).empty());
    setLogSink({});
    return lines;
}

} // namespace

TEST(LcdPicture, rawOfWholeBytes_isOneLayer)
{
    const Bytes pixels{X, _, _, _, _, _, _, _, _, _, _,   _, _, _, _, 127, //
                       _, _, _, _, _, _, _, _, _, X, 128, _, _, _, _, _};
    const auto layers = greyPicture(pixels, 16).makeLayers(515, 7, 9);
    ASSERT_EQ(layers.size(), 1U);
    EXPECT_EQ(layers[0].lcd, 515);
    EXPECT_EQ(layers[0].x, 7);
    EXPECT_EQ(layers[0].y, 9);
    EXPECT_EQ(layers[0].width, 16);
    EXPECT_EQ(layers[0].height, 2);
    EXPECT_EQ(layers[0].bitsPerPixel, 1);
    EXPECT_EQ(layers[0].encoded, 0);
    EXPECT_THAT(layers[0].buffer, ElementsAre(0x80, 0x01, 0x00, 0x40));
}

TEST(LcdPicture, rawOfOtherWidths_repeatsTheLastEightColumns)
{
    const Bytes pixels{X, _, _, _, X, _, _, _, _, _, X, //
                       _, X, _, _, _, _, _, _, X, _, _};
    const auto layers = greyPicture(pixels, 11).makeLayers(9, 20, 2);
    ASSERT_EQ(layers.size(), 2U);
    EXPECT_EQ(layers[0].x, 20);
    EXPECT_EQ(layers[0].width, 8);
    EXPECT_THAT(layers[0].buffer, ElementsAre(0x88, 0x40));
    EXPECT_EQ(layers[1].lcd, 9);
    EXPECT_EQ(layers[1].x, 23);
    EXPECT_EQ(layers[1].y, 2);
    EXPECT_EQ(layers[1].width, 8);
    EXPECT_EQ(layers[1].height, 2);
    EXPECT_THAT(layers[1].buffer, ElementsAre(0x41, 0x04));
}

TEST(LcdPicture, runLength_hasAMarkerAndRunsForEachRow)
{
    const Bytes pixels{_, _, _, X, //
                       X, X, X, X};
    const auto layers = greyPicture(pixels, 4, Form::RunLength).makeLayers(1, 2, 3);
    ASSERT_EQ(layers.size(), 1U);
    EXPECT_EQ(layers[0].lcd, 1);
    EXPECT_EQ(layers[0].x, 2);
    EXPECT_EQ(layers[0].y, 3);
    EXPECT_EQ(layers[0].width, 4);
    EXPECT_EQ(layers[0].height, 2);
    EXPECT_EQ(layers[0].encoded, 1);
    EXPECT_EQ(layers[0].encodedSize, 20U);
    EXPECT_THAT(layers[0].buffer, ElementsAre(0xFF, 0xFF, 0xFF, 0xFF, 3, 0, 0, 0, 1, 0, 0, 1, //
                                              0xFF, 0xFF, 0xFF, 0xFF, 4, 0, 0, 1));
}

TEST(LcdPicture, everyPixelOfItsOwn_hasRoomInRunLengthWords)
{
    const Bytes pixels{X, _, X};
    EXPECT_THAT(greyPicture(pixels, 3, Form::RunLength).makeLayers(0).front().buffer,
                ElementsAre(0xFF, 0xFF, 0xFF, 0xFF, 1, 0, 0, 1, 1, 0, 0, 0, 1, 0, 0, 1));
}

TEST(LcdPicture, rawThatWouldLoseBits_isRunLength)
{
    EXPECT_TRUE(isEncoded(7, 0));
    EXPECT_TRUE(isEncoded(7, 100));
    EXPECT_FALSE(isEncoded(8, 0));
    EXPECT_FALSE(isEncoded(9, 0));
    EXPECT_TRUE(isEncoded(8, 0, Form::RunLength));
}

// The second layer's first column has one byte.
TEST(LcdPicture, rawWithoutRoomForItsSecondLayer_isRunLength)
{
    EXPECT_FALSE(isEncoded(13, 250));
    EXPECT_TRUE(isEncoded(14, 250));
    EXPECT_FALSE(isEncoded(16, 250));
}

// A row of one shade is 8 bytes of words: as many as 64 pixels, fewer than 72, or than 65
// with the second layer's byte.
TEST(LcdPicture, smaller_isRawUntilRunLengthHasFewerBytes)
{
    EXPECT_FALSE(isEncoded(64, 0, Form::Smaller));
    EXPECT_TRUE(isEncoded(72, 0, Form::Smaller));
    EXPECT_TRUE(isEncoded(65, 0, Form::Smaller));
    Bytes changes(72, _);
    changes[5] = X;
    EXPECT_EQ(greyPicture(changes, 72, Form::Smaller).makeLayers(0).front().encoded, 0);
}

// In row 1, which alone takes errors: the second pixel gets 100 / 16 = 6 from above to the
// left, 5 × 100 / 16 = 31 from above and 7 × 100 / 16 = 43 from the left: 180.
TEST(LcdPicture, dithering_isTheOneAskedFor)
{
    const Bytes pixels{100, 100, //
                       100, 100};
    LcdPicture picture = greyPicture(pixels, 2, Form::RunLength);
    EXPECT_THAT(picture.makeLayers(0).front().buffer, ElementsAre(0xFF, 0xFF, 0xFF, 0xFF, 2, 0, 0, 1, //
                                                                  0xFF, 0xFF, 0xFF, 0xFF, 2, 0, 0, 1));
    picture.dither = LcdHelper::FloydSteinberg;
    EXPECT_THAT(picture.makeLayers(0).front().buffer, ElementsAre(0xFF, 0xFF, 0xFF, 0xFF, 2, 0, 0, 1, //
                                                                  0xFF, 0xFF, 0xFF, 0xFF, 1, 0, 0, 1, 1, 0, 0, 0));
    EXPECT_THAT(pixels, Each(100));
}

TEST(LcdPicture, unlessTold_isRawByStuckiAt128)
{
    const LcdPicture picture(nullptr, 1, 1, BitmapImage::Gray8);
    EXPECT_EQ(picture.dither, LcdHelper::Stucki);
    EXPECT_EQ(picture.threshold, 128);
    EXPECT_FALSE(picture.isInverted);
    EXPECT_EQ(picture.form, Form::Raw);
    EXPECT_EQ(picture.stride, 0U);
}

TEST(LcdPicture, threshold_isTheFirstShadeThatIsWhite)
{
    const Bytes pixels{0, 99, 100, 101, 255, 99, 98, 97};
    LcdPicture picture = greyPicture(pixels, 8);
    picture.threshold = 100;
    EXPECT_THAT(picture.makeLayers(0).front().buffer, ElementsAre(0b11000111));
}

TEST(LcdPicture, inverted_isThresholdedAsItLooksThen)
{
    const Bytes pixels{0, 27, 28, 29, 255, 155, 156, 157}; // 255, 228, 227, 226, 0, 100, 99, 98
    LcdPicture picture = greyPicture(pixels, 8);
    picture.isInverted = true;
    picture.threshold = 228;
    EXPECT_THAT(picture.makeLayers(0).front().buffer, ElementsAre(0b00111111));
    picture.threshold = 100;
    EXPECT_THAT(picture.makeLayers(0).front().buffer, ElementsAre(0b00001011));
}

TEST(LcdPicture, stride_skipsWhatIsBehindARow)
{
    const Bytes pixels{X, _, _, _, _, _, _, X, X, X, //
                       _, X, _, _, _, _, _, _, X, X};
    LcdPicture picture(pixels.data(), 8, 2, BitmapImage::Gray8);
    picture.dither = LcdHelper::Threshold;
    picture.stride = 10;
    EXPECT_THAT(picture.makeLayers(0).front().buffer, ElementsAre(0x81, 0x40));
}

TEST(LcdPicture, greys_stayWhatTheyAre)
{
    for (unsigned int shade = 0; shade < 256; ++shade) {
        const auto level = static_cast<std::uint8_t>(shade);
        EXPECT_EQ(greyOf({level}, BitmapImage::Gray8), shade);
        EXPECT_EQ(greyOf({level, level, level}, BitmapImage::Rgb888), shade);
    }
}

TEST(LcdPicture, colours_areWeighed)
{
    const auto grey = [](std::uint8_t red, std::uint8_t green, std::uint8_t blue) {
        return greyOf({red, green, blue}, BitmapImage::Rgb888);
    };
    EXPECT_EQ(grey(255, 0, 0), 76);  // 76.245
    EXPECT_EQ(grey(0, 255, 0), 150); // 149.685
    EXPECT_EQ(grey(0, 0, 255), 29);  // 29.07
    EXPECT_EQ(grey(10, 0, 110), 16); // 15.53
    EXPECT_EQ(grey(5, 0, 0), 1);     // 1.495
    EXPECT_EQ(grey(1, 2, 9), 2);     // 2.499
    EXPECT_EQ(grey(0, 0, 250), 29);  // 28.5
    EXPECT_EQ(grey(2, 2, 64), 9);    // 9.068
}

TEST(LcdPicture, smallFormats_areSpreadOverAllShades)
{
    EXPECT_EQ(greyOf({0b101'011'10}, BitmapImage::Rgb332), 138);             // 182, 109, 170: 137.781
    EXPECT_EQ(greyOf({0b110'00100, 0b10100'101}, BitmapImage::Rgb565), 162); // 164, 186, 32: 161.866
    EXPECT_EQ(greyOf({0xFF, 0xFF}, BitmapImage::Rgb565), 255);
    EXPECT_EQ(greyOf({0x00, 0xF8}, BitmapImage::Rgb565), 76); // red
}

TEST(LcdPicture, transparent_liesOnWhite)
{
    EXPECT_EQ(greyOf({0, 0, 0, 0}, BitmapImage::Rgba8888), 255);
    EXPECT_EQ(greyOf({10, 20, 30, 255}, BitmapImage::Rgba8888), 18);    // 18.15
    EXPECT_EQ(greyOf({100, 100, 100, 51}, BitmapImage::Rgba8888), 224); // 20 + 204
}

TEST(LcdPicture, everyPixel_isReadAtItsPlace)
{
    const Bytes pixels{0, 0, 0, 255, 255, 255, 255, 255, 255, 0, 0, 0};
    EXPECT_THAT(LcdPicture(pixels.data(), 2, 2, BitmapImage::Rgb888).toGrey(), ElementsAre(0, 255, 255, 0));
    const Bytes words{0xFF, 0xFF, 0, 0};
    EXPECT_THAT(LcdPicture(words.data(), 1, 2, BitmapImage::Rgb565).toGrey(), ElementsAre(255, 0));
}

// Reading has no limit of size.
TEST(LcdPicture, greyOfALargePicture_isWhole)
{
    const Bytes pixels(300 * 400, 7);
    EXPECT_EQ(LcdPicture(pixels.data(), 300, 400, BitmapImage::Gray8).toGrey(), pixels);
}

TEST(LcdPicture, pictureThatCanNotBeRead_makesNoLayers)
{
    const Bytes pixels(64, X);
    const auto complaintOf = [&pixels](unsigned int width, unsigned int height, int format, std::size_t stride) {
        LcdPicture picture(pixels.data(), width, height, static_cast<BitmapImage::Format>(format));
        picture.stride = stride;
        return complaintAbout(picture);
    };
    EXPECT_EQ(complaintAbout(LcdPicture(nullptr, 8, 8, BitmapImage::Gray8)),
              "[libusb] LcdPicture of 8x8 pixels refused: it has no pixels");
    EXPECT_EQ(complaintOf(0, 8, BitmapImage::Gray8, 0), "[libusb] LcdPicture of 0x8 pixels refused: it has no pixels");
    EXPECT_EQ(complaintOf(8, 0, BitmapImage::Gray8, 0), "[libusb] LcdPicture of 8x0 pixels refused: it has no pixels");
    EXPECT_EQ(complaintOf(8, 2, BitmapImage::Rgb444, 0),
              "[libusb] LcdPicture of 8x2 pixels refused: its format is none of Gray8, Rgb332, Rgb565, Rgb888 and "
              "Rgba8888");
    EXPECT_EQ(complaintOf(8, 1, 99, 0),
              "[libusb] LcdPicture of 8x1 pixels refused: its format is none of Gray8, Rgb332, Rgb565, Rgb888 and "
              "Rgba8888");
    EXPECT_EQ(complaintOf(8, 2, BitmapImage::Rgb888, 23),
              "[libusb] LcdPicture of 8x2 pixels refused: its stride is shorter than a row");
    EXPECT_TRUE(LcdPicture(pixels.data(), 8, 0, BitmapImage::Gray8).toGrey().empty());
}

TEST(LcdPicture, pictureThatDoesNotFit_makesNoLayers)
{
    const Bytes pixels(256 * 256, X);
    const auto picture = [&pixels](unsigned int width, unsigned int height) {
        return LcdPicture(pixels.data(), width, height, BitmapImage::Gray8);
    };
    EXPECT_EQ(complaintAbout(picture(256, 1)),
              "[libusb] LcdPicture of 256x1 pixels refused: a layer has at most 255 pixels a side");
    EXPECT_EQ(complaintAbout(picture(1, 256)),
              "[libusb] LcdPicture of 1x256 pixels refused: a layer has at most 255 pixels a side");
    EXPECT_EQ(complaintAbout(picture(8, 8), 256, 0),
              "[libusb] LcdPicture of 8x8 pixels refused: a layer begins at column 255 at most");
    const std::string tooLow =
        "[libusb] LcdPicture of 8x8 pixels refused: it reaches past row 255, the last one that an LCD can have";
    EXPECT_EQ(complaintAbout(picture(8, 8), 0, 249), tooLow);
    EXPECT_EQ(complaintAbout(picture(8, 8), 0, 0xFFFFFFFF), tooLow);
    EXPECT_EQ(picture(8, 8).makeLayers(0, 255, 248).size(), 1U);
    EXPECT_EQ(picture(255, 255).makeLayers(0, 0, 1).size(), 2U);
}

} // namespace Vantor
