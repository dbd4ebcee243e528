#include "simulator/picture/PngEncoder.h"
#include "tests/support/Bytes.h"
#include "tests/unit/picture/Pixels.h"

#include <cstddef>
#include <cstdint>
#include <random>
#include <stdexcept>
#include <vector>

#include <png.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using testing::ElementsAre;

struct Decoded {
    unsigned int width;
    unsigned int height;
    Pixels pixels;
};

Decoded decodePng(const Bytes& file)
{
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_NE(png_image_begin_read_from_memory(&image, file.data(), file.size()), 0) << image.message;
    image.format = PNG_FORMAT_RGB;
    Bytes samples(PNG_IMAGE_SIZE(image));
    EXPECT_NE(png_image_finish_read(&image, nullptr, samples.data(), 0, nullptr), 0) << image.message;
    Decoded decoded{image.width, image.height, {}};
    for (std::size_t i = 0; i + 2 < samples.size(); i += 3)
        decoded.pixels.push_back(std::uint32_t{samples[i]} << 16 | std::uint32_t{samples[i + 1]} << 8 | samples[i + 2]);
    return decoded;
}

// Behind the signature, the chunk's length and name, width, height and depth: 0 grey, 2 RGB.
std::uint8_t colourTypeOf(const Bytes& file)
{
    return file.at(25);
}

TEST(PngEncoder, pixels_areThoseOfTheScreen)
{
    const Pixels pixels{0x123456, w, b, 0xFF0000, 0x00FF00, 0x0000FF};
    const Bytes file = PngEncoder::encode(PanelScreen({2, 3}, pixels));
    EXPECT_EQ(colourTypeOf(file), 2);
    const Decoded decoded = decodePng(file);
    EXPECT_EQ(decoded.width, 2u);
    EXPECT_EQ(decoded.height, 3u);
    EXPECT_EQ(decoded.pixels, pixels);
}

TEST(PngEncoder, smallestScreen_onePixel)
{
    const Bytes file = PngEncoder::encode(PanelScreen({1, 1}, {b}));
    EXPECT_EQ(colourTypeOf(file), 0);
    const Decoded decoded = decodePng(file);
    EXPECT_EQ(decoded.width, 1u);
    EXPECT_EQ(decoded.height, 1u);
    EXPECT_THAT(decoded.pixels, ElementsAre(b));
}

TEST(PngEncoder, zoom_eachPixelASquare)
{
    const Decoded decoded = decodePng(PngEncoder::encode(PanelScreen({2, 2}, {b, w, 0xFF8000, b}), 3));
    EXPECT_EQ(decoded.width, 6u);
    EXPECT_EQ(decoded.height, 6u);
    constexpr std::uint32_t o = 0xFF8000;
    // clang-format off
    EXPECT_THAT(decoded.pixels, ElementsAre(b, b, b, w, w, w,
                                            b, b, b, w, w, w,
                                            b, b, b, w, w, w,
                                            o, o, o, b, b, b,
                                            o, o, o, b, b, b,
                                            o, o, o, b, b, b));
    // clang-format on
}

// Noise does not pack: more than the 64 KiB that the encoder begins with.
TEST(PngEncoder, largestScreenFullOfNoise_isWhole)
{
    std::mt19937 random(1);
    Pixels pixels(510 * 510);
    for (std::uint32_t& pixel : pixels)
        pixel = static_cast<std::uint32_t>(random()) & 0xFFFFFF;
    const Bytes file = PngEncoder::encode(PanelScreen({510, 510}, pixels));
    EXPECT_GT(file.size(), 510u * 510u * 3u);
    const Decoded decoded = decodePng(file);
    EXPECT_EQ(decoded.width, 510u);
    EXPECT_EQ(decoded.height, 510u);
    EXPECT_TRUE(decoded.pixels == pixels);
}

TEST(PngEncoder, largestScreenAtTheHighestZoom_4080Pixels)
{
    const Decoded decoded = decodePng(PngEncoder::encode(PanelScreen({510, 510}, Pixels(510 * 510, b)), 8));
    EXPECT_EQ(decoded.width, 4080u);
    EXPECT_EQ(decoded.height, 4080u);
    EXPECT_TRUE(decoded.pixels == Pixels(4080 * 4080, b));
}

TEST(PngEncoder, zoomThatIsNone_throws)
{
    const PanelScreen screen({1, 1});
    EXPECT_THROW((void)PngEncoder::encode(screen, 0), std::invalid_argument);
    EXPECT_NO_THROW((void)PngEncoder::encode(screen, 8));
    EXPECT_THROW((void)PngEncoder::encode(screen, 9), std::invalid_argument);
    EXPECT_THROW((void)PngEncoder::encode(screen, 0xFFFFFFFF), std::invalid_argument);
}

} // namespace
} // namespace Vantor
