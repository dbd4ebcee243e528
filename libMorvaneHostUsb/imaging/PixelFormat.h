#pragma once

#include "libMorvaneHostUsb/BitmapImage.h"

#include <cstddef>
#include <cstdint>

namespace Vantor {

// How BitmapImage's formats store a pixel: read and written as 0x00RRGGBB.
namespace PixelFormat {

inline unsigned int rgb(unsigned int red, unsigned int green, unsigned int blue)
{
    return red << 16 | green << 8 | blue;
}

// The parity of the column, not of the pixel's index, picks the nibbles of Rgb444: images
// of odd width read differently on odd rows.
template <int format> unsigned int read(const unsigned char* data, std::size_t index, bool isEvenColumn)
{
    if constexpr (format == BitmapImage::Gray8) {
        return data[index];
    } else if constexpr (format == BitmapImage::Rgb332) {
        const unsigned int pixel = data[index];
        return rgb((pixel >> 5) * 255 / 7, (pixel >> 2 & 7) * 255 / 7, (pixel & 3) * 85);
    } else if constexpr (format == BitmapImage::Rgb444) {
        const unsigned int first = data[index * 12 / 8];
        const unsigned int second = data[index * 12 / 8 + 1];
        return isEvenColumn ? rgb((first >> 4) * 17, (first & 15) * 17, (second >> 4) * 17)
                            : rgb((first & 15) * 17, (second >> 4) * 17, (second & 15) * 17);
    } else if constexpr (format == BitmapImage::Rgb565) {
        const unsigned int pixel = data[index * 2] | static_cast<unsigned int>(data[index * 2 + 1]) << 8;
        return rgb((pixel >> 11) * 255 / 31, (pixel >> 5 & 63) * 255 / 63, (pixel & 31) * 255 / 31);
    } else if constexpr (format == BitmapImage::Rgb888) {
        return rgb(data[index * 3], data[index * 3 + 1], data[index * 3 + 2]);
    } else if constexpr (format == BitmapImage::Rgba8888) {
        const unsigned char* const bytes = data + index * 4;
        const unsigned int alpha = bytes[3];
        return rgb(bytes[0] * alpha / 255, bytes[1] * alpha / 255, bytes[2] * alpha / 255);
    } else {
        return 0;
    }
}

template <int format> void write(unsigned char* data, std::size_t index, bool isEvenColumn, unsigned int colour)
{
    const unsigned int red = colour >> 16 & 255;
    const unsigned int green = colour >> 8 & 255;
    const unsigned int blue = colour & 255;
    if constexpr (format == BitmapImage::Rgb565) {
        const unsigned int word = (red >> 3) << 11 | (green >> 2) << 5 | blue >> 3;
        data[index * 2] = static_cast<unsigned char>(word);
        data[index * 2 + 1] = static_cast<unsigned char>(word >> 8);
    } else if constexpr (format == BitmapImage::Rgb888) {
        // Cut to 16 bits: the limit of this format's addressing.
        unsigned char* const pixel = data + static_cast<std::uint16_t>(index * 3);
        pixel[0] = static_cast<unsigned char>(red);
        pixel[1] = static_cast<unsigned char>(green);
        pixel[2] = static_cast<unsigned char>(blue);
    } else {
        static_assert(format == BitmapImage::Rgb444);
        // An even column writes its shared byte whole, an odd one ORs into it.
        unsigned char* const pixel = data + index * 12 / 8;
        pixel[0] = static_cast<unsigned char>(isEvenColumn ? (red >> 4) << 4 | green >> 4 : pixel[0] | red >> 4);
        pixel[1] = static_cast<unsigned char>(isEvenColumn ? (blue >> 4) << 4 : (green >> 4) << 4 | blue >> 4);
    }
}

} // namespace PixelFormat

} // namespace Vantor
