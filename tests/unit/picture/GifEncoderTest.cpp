#include "simulator/picture/GifEncoder.h"
#include "tests/support/Bytes.h"
#include "tests/unit/picture/Pixels.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gif_lib.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::SizeIs;

using Frames = std::vector<GifEncoder::Frame>;

struct DecodedFrame {
    int left;
    int top;
    int width;
    int height;
    int delay;     // -1: none is told
    Pixels pixels; // of the whole picture, when this part has been drawn
};

struct DecodedGif {
    int width = 0;
    int height = 0;
    bool loops = false;
    std::vector<DecodedFrame> frames;
};

class GifReader {
public:
    static DecodedGif decode(const Bytes& file)
    {
        GifReader reader(file);
        int error = 0;
        GifFileType* const gif = DGifOpen(&reader, read, &error);
        if (gif == nullptr)
            throw std::runtime_error(GifErrorString(error));
        if (DGifSlurp(gif) != GIF_OK)
            throw std::runtime_error(GifErrorString(gif->Error));
        const DecodedGif decoded = look(*gif);
        EXPECT_EQ(DGifCloseFile(gif, &error), GIF_OK);
        EXPECT_EQ(reader.m_next, file.size()) << "something behind the end";
        return decoded;
    }

private:
    explicit GifReader(const Bytes& file) : m_file(file) {}

    static int read(GifFileType* gif, GifByteType* bytes, int size)
    {
        auto& reader = *static_cast<GifReader*>(gif->UserData);
        const std::size_t count = std::min(static_cast<std::size_t>(size), reader.m_file.size() - reader.m_next);
        std::memcpy(bytes, reader.m_file.data() + reader.m_next, count);
        reader.m_next += count;
        return static_cast<int>(count);
    }

    static DecodedGif look(GifFileType& gif)
    {
        DecodedGif decoded;
        decoded.width = gif.SWidth;
        decoded.height = gif.SHeight;
        const auto width = static_cast<std::size_t>(gif.SWidth);
        Pixels canvas(width * static_cast<std::size_t>(gif.SHeight), 0xDEAD0000);
        for (int i = 0; i < gif.ImageCount; ++i) {
            const SavedImage& image = gif.SavedImages[i];
            const GifImageDesc& part = image.ImageDesc;
            EXPECT_EQ(part.ColorMap, nullptr);
            for (int y = 0; y < part.Height; ++y)
                for (int x = 0; x < part.Width; ++x)
                    canvas.at(static_cast<std::size_t>(part.Top + y) * width +
                              static_cast<std::size_t>(part.Left + x)) =
                        colourOf(*gif.SColorMap, image.RasterBits[y * part.Width + x]);
            GraphicsControlBlock control{};
            const bool isTimed = DGifSavedExtensionToGCB(&gif, i, &control) == GIF_OK;
            if (isTimed) {
                EXPECT_EQ(control.DisposalMode, DISPOSE_DO_NOT);
                EXPECT_EQ(control.TransparentColor, NO_TRANSPARENT_COLOR);
            }
            decoded.loops |= hasLoop(image);
            decoded.frames.push_back(
                {part.Left, part.Top, part.Width, part.Height, isTimed ? control.DelayTime : -1, canvas});
        }
        return decoded;
    }

    static std::uint32_t colourOf(const ColorMapObject& map, std::size_t index)
    {
        const GifColorType& colour = map.Colors[index];
        return std::uint32_t{colour.Red} << 16 | std::uint32_t{colour.Green} << 8 | colour.Blue;
    }

    // For ever: a count of 0 in the block behind the name.
    static bool hasLoop(const SavedImage& image)
    {
        for (int i = 0; i + 1 < image.ExtensionBlockCount; ++i) {
            const ExtensionBlock& name = image.ExtensionBlocks[i];
            const ExtensionBlock& count = image.ExtensionBlocks[i + 1];
            if (name.Function == APPLICATION_EXT_FUNC_CODE &&
                std::string(reinterpret_cast<const char*>(name.Bytes), static_cast<std::size_t>(name.ByteCount)) ==
                    "NETSCAPE2.0")
                return Bytes(count.Bytes, count.Bytes + count.ByteCount) == Bytes{1, 0, 0};
        }
        return false;
    }

    const Bytes& m_file;
    std::size_t m_next = 0;
};

std::vector<int> delaysOf(const DecodedGif& gif)
{
    std::vector<int> delays;
    for (const DecodedFrame& frame : gif.frames)
        delays.push_back(frame.delay);
    return delays;
}

testing::Matcher<DecodedFrame> isPart(int left, int top, int width, int height)
{
    return AllOf(Field("left", &DecodedFrame::left, left), Field("top", &DecodedFrame::top, top),
                 Field("width", &DecodedFrame::width, width), Field("height", &DecodedFrame::height, height));
}

void expectRefused(const Frames& frames, unsigned int zoom, const std::string& why)
{
    try {
        (void)GifEncoder::encode(frames, zoom);
        ADD_FAILURE() << "did not throw: " << why;
    } catch (const std::invalid_argument& error) {
        EXPECT_THAT(error.what(), HasSubstr(why));
    }
}

TEST(GifEncoder, onePicture_doesNotMove)
{
    const Pixels pixels{b, w, 0x123456, w, b, b};
    const Bytes file = GifEncoder::encode({{PanelScreen({3, 2}, pixels), 1s}});
    EXPECT_EQ(std::string(file.begin(), file.begin() + 6), "GIF87a");
    const DecodedGif gif = GifReader::decode(file);
    EXPECT_EQ(gif.width, 3);
    EXPECT_EQ(gif.height, 2);
    EXPECT_FALSE(gif.loops);
    ASSERT_THAT(gif.frames, SizeIs(1));
    EXPECT_EQ(gif.frames[0].delay, -1);
    EXPECT_EQ(gif.frames[0].pixels, pixels);
}

TEST(GifEncoder, smallestScreen_onePixelOfOneColour)
{
    const DecodedGif gif = GifReader::decode(GifEncoder::encode({{PanelScreen({1, 1}, {0x102030}), 0s}}));
    ASSERT_THAT(gif.frames, ElementsAre(isPart(0, 0, 1, 1)));
    EXPECT_THAT(gif.frames[0].pixels, ElementsAre(0x102030));
}

TEST(GifEncoder, changes_onlyTheirRectangleIsStored)
{
    const Pixels first(12, w); // 4x3
    const Pixels second{w, w, w, w, w, b, w, w, w, w, w, w};
    const Pixels third{w, w, w, b, w, b, w, w, w, w, b, w};
    const DecodedGif gif = GifReader::decode(GifEncoder::encode({{PanelScreen({4, 3}, first), 100ms},
                                                                 {PanelScreen({4, 3}, second), 250ms},
                                                                 {PanelScreen({4, 3}, third), 40ms}}));
    EXPECT_TRUE(gif.loops);
    ASSERT_THAT(gif.frames, ElementsAre(isPart(0, 0, 4, 3), isPart(1, 1, 1, 1), isPart(2, 0, 2, 3)));
    EXPECT_THAT(delaysOf(gif), ElementsAre(10, 25, 4));
    EXPECT_EQ(gif.frames[0].pixels, first);
    EXPECT_EQ(gif.frames[1].pixels, second);
    EXPECT_EQ(gif.frames[2].pixels, third);
}

// 25 ms each, from 0: they begin at 0, 2.5, 5, 7.5, 10, 12.5 hundredths. Halves go to the even one.
TEST(GifEncoder, times_roundedWithoutDrift)
{
    Frames frames;
    for (int i = 0; i < 5; ++i)
        frames.push_back({PanelScreen({1, 1}, {i % 2 == 0 ? b : w}), 25ms});
    EXPECT_THAT(delaysOf(GifReader::decode(GifEncoder::encode(frames))), ElementsAre(2, 3, 3, 2, 2));

    // 33,333 µs: a second of 30 pictures stays one.
    frames.clear();
    for (int i = 0; i < 300; ++i)
        frames.push_back({PanelScreen({1, 1}, {i % 2 == 0 ? b : w}), 33333us});
    int sum = 0;
    for (const int delay : delaysOf(GifReader::decode(GifEncoder::encode(frames))))
        sum += delay;
    EXPECT_EQ(sum, 1000);
}

TEST(GifEncoder, equalPictures_areOneOfTheirTimeTogether)
{
    const PanelScreen black({1, 1}, {b});
    const PanelScreen white({1, 1}, {w});
    const DecodedGif gif = GifReader::decode(
        GifEncoder::encode({{black, 100ms}, {black, 15ms}, {black, 5ms}, {white, 40ms}, {white, 60ms}, {black, 30ms}}));
    EXPECT_THAT(delaysOf(gif), ElementsAre(12, 10, 3));
    EXPECT_THAT(GifReader::decode(GifEncoder::encode({{black, 1s}, {black, 1s}})).frames, SizeIs(1));
}

TEST(GifEncoder, pictureTooShort_leavesItsTimeToTheNext)
{
    const PanelScreen black({1, 1}, {b});
    const PanelScreen white({1, 1}, {w});
    const PanelScreen grey({1, 1}, {0x808080});
    const DecodedGif gif = GifReader::decode(
        GifEncoder::encode({{black, 100ms}, {white, 10ms}, {grey, 50ms}, {white, 20ms}, {grey, 0ms}}));
    EXPECT_THAT(delaysOf(gif), ElementsAre(10, 6, 2, 2));
    EXPECT_THAT(gif.frames.at(1).pixels, ElementsAre(0x808080));
    EXPECT_THAT(gif.frames.at(2).pixels, ElementsAre(w));
    EXPECT_THAT(gif.frames.at(3).pixels, ElementsAre(0x808080));
}

TEST(GifEncoder, pictureTooShortBetweenEqualOnes_isGone)
{
    const PanelScreen black({1, 1}, {b});
    const PanelScreen white({1, 1}, {w});
    const DecodedGif gif =
        GifReader::decode(GifEncoder::encode({{black, 100ms}, {white, 10ms}, {black, 50ms}, {white, 40ms}}));
    EXPECT_THAT(delaysOf(gif), ElementsAre(16, 4));
    EXPECT_THAT(gif.frames.at(0).pixels, ElementsAre(b));
}

TEST(GifEncoder, pictureThatStaysLonger_hasTheLongestDelay)
{
    const PanelScreen black({1, 1}, {b});
    const PanelScreen white({1, 1}, {w});
    EXPECT_THAT(delaysOf(GifReader::decode(GifEncoder::encode({{black, 655350ms}, {black, 655350ms}, {white, 1s}}))),
                ElementsAre(65535, 100));
}

TEST(GifEncoder, zoom_scalesPicturesAndRectangles)
{
    const DecodedGif gif = GifReader::decode(
        GifEncoder::encode({{PanelScreen({2, 1}, {w, w}), 100ms}, {PanelScreen({2, 1}, {w, 0xFF0000}), 100ms}}, 2));
    EXPECT_EQ(gif.width, 4);
    EXPECT_EQ(gif.height, 2);
    ASSERT_THAT(gif.frames, ElementsAre(isPart(0, 0, 4, 2), isPart(2, 0, 2, 2)));
    constexpr std::uint32_t r = 0xFF0000;
    EXPECT_THAT(gif.frames[1].pixels, ElementsAre(w, w, r, r, w, w, r, r));
}

TEST(GifEncoder, largestScreenAtTheHighestZoom_4080Pixels)
{
    Pixels pixels(510 * 510, w);
    pixels.back() = b;
    const DecodedGif gif = GifReader::decode(GifEncoder::encode({{PanelScreen({510, 510}, pixels), 1s}}, 8));
    EXPECT_EQ(gif.width, 4080);
    EXPECT_EQ(gif.height, 4080);
    ASSERT_THAT(gif.frames, SizeIs(1));
    Pixels expected(4080 * 4080, w);
    for (std::size_t y = 4072; y < 4080; ++y)
        std::fill_n(expected.begin() + static_cast<std::ptrdiff_t>(y * 4080 + 4072), 8, b);
    EXPECT_TRUE(gif.frames[0].pixels == expected);
}

// In every byte of a palette that is full, and longer than any table of the packing.
TEST(GifEncoder, noiseOf256Colours_isExact)
{
    std::mt19937 random(1);
    Frames frames;
    for (int i = 0; i < 3; ++i) {
        Pixels pixels(510 * 510);
        for (std::uint32_t& pixel : pixels)
            pixel = (static_cast<std::uint32_t>(random()) & 0xFF) * 0x010203 & 0xFFFFFF;
        frames.push_back({PanelScreen({510, 510}, std::move(pixels)), 40ms});
    }
    const DecodedGif gif = GifReader::decode(GifEncoder::encode(frames));
    ASSERT_THAT(gif.frames, SizeIs(3));
    for (std::size_t i = 0; i < frames.size(); ++i)
        EXPECT_TRUE(gif.frames[i].pixels == frames[i].screen.getPixels()) << i;
}

TEST(GifEncoder, moreThan256ColoursAltogether_theNearestOf216)
{
    Pixels first(256);
    for (std::uint32_t i = 0; i < 256; ++i)
        first[i] = i;
    Pixels second = first;
    second[0] = 0xFF7F00; // the 257th: of red 255, of green 102 is nearer than 153
    const DecodedGif gif = GifReader::decode(
        GifEncoder::encode({{PanelScreen({256, 1}, first), 40ms}, {PanelScreen({256, 1}, second), 40ms}}));
    ASSERT_THAT(gif.frames, SizeIs(2));
    EXPECT_EQ(gif.frames[0].pixels[25], 0x000000u);
    EXPECT_EQ(gif.frames[0].pixels[26], 0x000033u);
    EXPECT_EQ(gif.frames[0].pixels[255], 0x0000FFu);
    EXPECT_EQ(gif.frames[1].pixels[0], 0xFF6600u);
}

TEST(GifEncoder, whatCannotBe_isRefused)
{
    const PanelScreen screen({2, 1});
    expectRefused({}, 1, "an animation needs a picture");
    expectRefused({{screen, 1s}, {PanelScreen({1, 2}), 1s}}, 1, "of one size");
    expectRefused({{screen, 1s}, {screen, -1us}}, 1, "0 to 655.35 s");
    expectRefused({{screen, 655350001us}}, 1, "0 to 655.35 s");
    expectRefused({{screen, 1s}}, 0, "a zoom is 1 to 8, not 0");
    expectRefused({{screen, 1s}}, 9, "a zoom is 1 to 8, not 9");
}

} // namespace
} // namespace Vantor
