#include "panelctl/picture/PictureLayers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <utility>

namespace Vantor {

namespace {

using ::testing::ElementsAre;
using Form = PictureLayers::Form;
using Place = PictureLayers::Place;

// What layers set: by column and row, 1 on, 0 off.
using Marks = std::map<std::pair<unsigned int, unsigned int>, int>;

void mark(Marks& marks, const ClientLcdBitmap& layer, unsigned int pixel, int value)
{
    marks[{layer.x + pixel % layer.width, layer.y + pixel / layer.width}] = value;
}

void markRaw(Marks& marks, const ClientLcdBitmap& layer)
{
    for (unsigned int pixel = 0; pixel < 1U * layer.width * layer.height; ++pixel)
        mark(marks, layer, pixel, layer.data()[pixel / 8] >> (7 - pixel % 8) & 1);
}

void markEncoded(Marks& marks, const ClientLcdBitmap& layer)
{
    ASSERT_EQ(layer.encodedSize, layer.size());
    ASSERT_EQ(layer.encodedSize % 4, 0U);
    unsigned int pixel = 0;
    for (std::uint32_t offset = 0; offset < layer.encodedSize; offset += 4) {
        const unsigned char* const word = layer.data() + offset;
        if (word[0] == 0xFF && word[1] == 0xFF) {
            ASSERT_EQ(pixel % layer.width, 0U);
            continue;
        }
        for (int i = 0; i < word[0]; ++i)
            mark(marks, layer, pixel++, word[3]);
    }
    ASSERT_EQ(pixel, 1U * layer.width * layer.height);
}

// Dark where it should be: no pattern, and no row like another.
GreyPicture noise(unsigned int width, unsigned int height)
{
    GreyPicture picture(width, height);
    std::uint32_t state = width * 251 + height;
    for (unsigned int y = 0; y < height; ++y)
        for (unsigned int x = 0; x < width; ++x) {
            state = state * 1664525 + 1013904223;
            picture.set(x, y, state >> 30 == 0 ? 0 : 255);
        }
    return picture;
}

void expectShown(const GreyPicture& picture, const Place& place, Form form)
{
    Marks marks;
    for (const ClientLcdBitmap& layer : PictureLayers::make(picture, place, form)) {
        EXPECT_EQ(layer.lcd, place.lcd);
        EXPECT_EQ(layer.bitsPerPixel, 1);
        EXPECT_EQ(layer.encoded != 0, form == Form::RunLength);
        if (form == Form::RunLength) {
            markEncoded(marks, layer);
        } else {
            // Slices of such rows lose no bits.
            EXPECT_EQ(layer.width % 8, 0);
            markRaw(marks, layer);
        }
    }
    Marks expected;
    for (unsigned int y = 0; y < picture.getHeight(); ++y)
        for (unsigned int x = 0; x < picture.getWidth(); ++x)
            expected[{place.x + x, place.y + y}] = picture.get(x, y) == 0 ? 1 : 0;
    EXPECT_EQ(marks, expected) << picture.getWidth() << "x" << picture.getHeight();
}

} // namespace

TEST(PictureLayers, rawOfWholeBytes_isOneLayer)
{
    GreyPicture picture(16, 2);
    picture.set(0, 0, 0);
    picture.set(15, 0, 127);
    picture.set(9, 1, 0);
    picture.set(10, 1, 128);
    const auto layers = PictureLayers::make(picture, {515, 7, 9}, Form::Raw);
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

TEST(PictureLayers, rawOfOtherWidths_repeatsTheLastEightColumns)
{
    GreyPicture picture(11, 1);
    picture.set(0, 0, 0);
    picture.set(4, 0, 0);
    picture.set(10, 0, 0);
    const auto layers = PictureLayers::make(picture, {0, 20, 0}, Form::Raw);
    ASSERT_EQ(layers.size(), 2U);
    EXPECT_EQ(layers[0].x, 20);
    EXPECT_EQ(layers[0].width, 8);
    EXPECT_THAT(layers[0].buffer, ElementsAre(0x88));
    EXPECT_EQ(layers[1].x, 23);
    EXPECT_EQ(layers[1].width, 8);
    EXPECT_THAT(layers[1].buffer, ElementsAre(0x41));
}

TEST(PictureLayers, runLength_hasAMarkerAndRunsForEachRow)
{
    GreyPicture picture(4, 2);
    picture.set(3, 0, 0);
    picture.set(0, 1, 0);
    picture.set(1, 1, 0);
    picture.set(2, 1, 0);
    picture.set(3, 1, 0);
    const auto layers = PictureLayers::make(picture, {1, 2, 3}, Form::RunLength);
    ASSERT_EQ(layers.size(), 1U);
    EXPECT_EQ(layers[0].x, 2);
    EXPECT_EQ(layers[0].y, 3);
    EXPECT_EQ(layers[0].encoded, 1);
    EXPECT_EQ(layers[0].encodedSize, 20U);
    EXPECT_THAT(layers[0].buffer, ElementsAre(0xFF, 0xFF, 0xFF, 0xFF, 3, 0, 0, 0, 1, 0, 0, 1, //
                                              0xFF, 0xFF, 0xFF, 0xFF, 4, 0, 0, 1));
}

TEST(PictureLayers, raw_showsEveryWidth)
{
    for (unsigned int width = 8; width <= 255; ++width)
        expectShown(noise(width, 3), {3, 0, 250}, Form::Raw);
}

TEST(PictureLayers, runLength_showsEveryWidth)
{
    for (unsigned int width = 1; width <= 255; ++width)
        expectShown(noise(width, 3), {3, 255, 1}, Form::RunLength);
    expectShown(noise(1, 255), {3, 0, 0}, Form::RunLength);
    expectShown(GreyPicture(255, 2, 255), {3, 0, 0}, Form::RunLength);
    expectShown(GreyPicture(255, 2, 0), {3, 0, 0}, Form::RunLength);
}

TEST(PictureLayers, rawThatWouldLoseBits_isSentAsRunLength)
{
    EXPECT_EQ(PictureLayers::choose(Form::Raw, 7, {0, 0, 0}), Form::RunLength);
    EXPECT_EQ(PictureLayers::choose(Form::Raw, 8, {0, 0, 0}), Form::Raw);
    EXPECT_EQ(PictureLayers::choose(Form::Raw, 9, {0, 0, 0}), Form::Raw);
    EXPECT_EQ(PictureLayers::choose(Form::RunLength, 8, {0, 0, 0}), Form::RunLength);
}

// The second layer's first column has one byte.
TEST(PictureLayers, rawWithoutRoomForItsSecondLayer_isSentAsRunLength)
{
    EXPECT_EQ(PictureLayers::choose(Form::Raw, 13, {0, 250, 0}), Form::Raw);
    EXPECT_EQ(PictureLayers::choose(Form::Raw, 14, {0, 250, 0}), Form::RunLength);
    EXPECT_EQ(PictureLayers::choose(Form::Raw, 16, {0, 250, 0}), Form::Raw);
}

TEST(PictureLayers, longestRow_isTheOneWithMostRuns)
{
    GreyPicture picture(5, 3);
    picture.set(1, 1, 0);
    picture.set(3, 1, 0);
    picture.set(4, 2, 0);
    EXPECT_EQ(PictureLayers::getLongestRow(PictureLayers::make(picture, {0, 0, 0}, Form::RunLength).front()), 24U);
}

} // namespace Vantor
