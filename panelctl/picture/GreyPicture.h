#pragma once

#include "libMorvaneHostUsb/LcdPicture.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Vantor {

// A picture in shades of grey, 0 black to 255 white, one byte a pixel, rows top to
// bottom without padding. Integers throughout, so that it looks the same everywhere.
class GreyPicture {
public:
    static constexpr std::uint8_t black = 0;
    static constexpr std::uint8_t white = 255;

    // All of one shade.
    GreyPicture(unsigned int width, unsigned int height, std::uint8_t shade = white);

    // `pixels` has width × height of them.
    GreyPicture(unsigned int width, unsigned int height, std::vector<std::uint8_t> pixels);

    unsigned int getWidth() const { return m_width; }
    unsigned int getHeight() const { return m_height; }
    const std::vector<std::uint8_t>& getPixels() const { return m_pixels; }

    std::uint8_t get(unsigned int x, unsigned int y) const { return m_pixels[index(x, y)]; }
    void set(unsigned int x, unsigned int y, std::uint8_t shade) { m_pixels[index(x, y)] = shade; }

    // As large as fits there without another aspect; nothing stays nothing. Every pixel is
    // the mean, rounded half up, of the area that it covers; at the same size that is the
    // pixel itself.
    GreyPicture scaledInto(unsigned int width, unsigned int height) const;

    // In the middle of one shade; neither side may be longer than there.
    GreyPicture centredOn(unsigned int width, unsigned int height, std::uint8_t shade) const;

    void invert();

    // Leaves black and white only.
    void dither(LcdHelper::DitherType type, int threshold);

    // Of a dithered picture.
    std::vector<ClientLcdBitmap> makeLayers(std::uint16_t lcd, unsigned int x, unsigned int y,
                                            LcdPicture::Form form) const;

private:
    std::size_t index(unsigned int x, unsigned int y) const { return std::size_t{y} * m_width + x; }

    unsigned int m_width;
    unsigned int m_height;
    std::vector<std::uint8_t> m_pixels;
};

} // namespace Vantor
