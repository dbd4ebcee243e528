#include "libMorvaneHostUsb/BitmapImage.h"

#include <cstddef>

namespace Vantor {

namespace {

unsigned int rgb(unsigned int red, unsigned int green, unsigned int blue)
{
    return red << 16 | green << 8 | blue;
}

unsigned int rgb332(unsigned int pixel)
{
    return rgb((pixel >> 5) * 255 / 7, (pixel >> 2 & 7) * 255 / 7, (pixel & 3) * 85);
}

// The parity of x, not of the pixel index, picks the nibbles: images of odd width
// read differently on odd rows.
unsigned int rgb444(const unsigned char* bytes, bool evenColumn)
{
    const unsigned int first = bytes[0];
    const unsigned int second = bytes[1];
    if (evenColumn)
        return rgb((first >> 4) * 17, (first & 15) * 17, (second >> 4) * 17);
    return rgb((first & 15) * 17, (second >> 4) * 17, (second & 15) * 17);
}

unsigned int rgb565(const unsigned char* bytes)
{
    const unsigned int pixel = bytes[0] | static_cast<unsigned int>(bytes[1]) << 8;
    return rgb((pixel >> 11) * 255 / 31, (pixel >> 5 & 63) * 255 / 63, (pixel & 31) * 255 / 31);
}

unsigned int rgba8888(const unsigned char* bytes)
{
    const unsigned int alpha = bytes[3];
    return rgb(bytes[0] * alpha / 255, bytes[1] * alpha / 255, bytes[2] * alpha / 255);
}

} // namespace

unsigned int BitmapImage::getRgbPixel(int x, int y) const
{
    if (x < 0 || x >= width || y < 0 || y >= height)
        return 0;
    const auto index = static_cast<std::size_t>(x) + static_cast<std::size_t>(width) * static_cast<std::size_t>(y);
    switch (format) {
    case Gray8:
        return data[index];
    case Rgb332:
        return rgb332(data[index]);
    case Rgb444:
        return rgb444(data + index * 12 / 8, x % 2 == 0);
    case Rgb565:
        return rgb565(data + index * 2);
    case Rgb888:
        return rgb(data[index * 3], data[index * 3 + 1], data[index * 3 + 2]);
    case Rgba8888:
        return rgba8888(data + index * 4);
    default:
        return 0;
    }
}

int BitmapImage::get1BitPixel(int x, int y) const
{
    if (x < 0 || x >= width || y < 0 || y >= height || format != Gray8)
        return 0;
    const auto index = static_cast<std::size_t>(x) + static_cast<std::size_t>(width) * static_cast<std::size_t>(y);
    return data[index] < threshold ? 1 : 0;
}

} // namespace Vantor
