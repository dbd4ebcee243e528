#pragma once

#include "libMorvaneHostUsb/BitmapImage.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace Vantor {

// How BitmapImage's formats store a pixel: read and written as 0x00RRGGBB.
namespace PixelFormat {

constexpr std::uint32_t rgb(unsigned int red, unsigned int green, unsigned int blue)
{
    return red << 16 | green << 8 | blue;
}

// Every value of so many bits, spread over 0 to 255.
template <std::size_t count> constexpr std::array<std::uint8_t, count> spread()
{
    std::array<std::uint8_t, count> levels{};
    for (std::size_t value = 0; value < count; ++value)
        levels[value] = static_cast<std::uint8_t>(value * 255 / (count - 1));
    return levels;
}

// level × alpha / 255, without a division.
constexpr unsigned int faded(unsigned int level, unsigned int alpha)
{
    const unsigned int product = level * alpha;
    return (product + 1 + (product >> 8)) >> 8;
}

inline constexpr auto ofThreeBits = spread<8>();
inline constexpr auto ofFiveBits = spread<32>();
inline constexpr auto ofSixBits = spread<64>();

// The parity of the column, not of the pixel's index, picks the nibbles of Rgb444: images
// of odd width read differently on odd rows.
template <int format> std::uint32_t read(const unsigned char* data, std::size_t index, bool isEvenColumn)
{
    if constexpr (format == BitmapImage::Gray8) {
        return data[index];
    } else if constexpr (format == BitmapImage::Rgb332) {
        const unsigned int pixel = data[index];
        return rgb(ofThreeBits[pixel >> 5], ofThreeBits[pixel >> 2 & 7], (pixel & 3) * 85);
    } else if constexpr (format == BitmapImage::Rgb444) {
        const unsigned char* const bytes = data + index * 3 / 2;
        const unsigned int both = static_cast<unsigned int>(bytes[0]) << 8 | bytes[1];
        const unsigned int nibbles = isEvenColumn ? both >> 4 : both & 0xFFF;
        return ((nibbles & 0xF00) << 8 | (nibbles & 0x0F0) << 4 | (nibbles & 0x00F)) * 17;
    } else if constexpr (format == BitmapImage::Rgb565) {
        const unsigned int pixel = data[index * 2] | static_cast<unsigned int>(data[index * 2 + 1]) << 8;
        return rgb(ofFiveBits[pixel >> 11], ofSixBits[pixel >> 5 & 63], ofFiveBits[pixel & 31]);
    } else if constexpr (format == BitmapImage::Rgb888) {
        return rgb(data[index * 3], data[index * 3 + 1], data[index * 3 + 2]);
    } else if constexpr (format == BitmapImage::Rgba8888) {
        const unsigned char* const bytes = data + index * 4;
        const unsigned int alpha = bytes[3];
        return rgb(faded(bytes[0], alpha), faded(bytes[1], alpha), faded(bytes[2], alpha));
    } else {
        return 0;
    }
}

template <int format> void write(unsigned char* data, std::size_t index, bool isEvenColumn, std::uint32_t colour)
{
    if constexpr (format == BitmapImage::Rgb565) {
        const unsigned int word = (colour >> 8 & 0xF800) | (colour >> 5 & 0x07E0) | (colour >> 3 & 0x001F);
        data[index * 2] = static_cast<unsigned char>(word);
        data[index * 2 + 1] = static_cast<unsigned char>(word >> 8);
    } else if constexpr (format == BitmapImage::Rgb888) {
        // Cut to 16 bits: the limit of this format's addressing.
        unsigned char* const pixel = data + static_cast<std::uint16_t>(index * 3);
        pixel[0] = static_cast<unsigned char>(colour >> 16);
        pixel[1] = static_cast<unsigned char>(colour >> 8);
        pixel[2] = static_cast<unsigned char>(colour);
    } else {
        static_assert(format == BitmapImage::Rgb444);
        unsigned char* const pixel = data + index * 3 / 2;
        const unsigned int nibbles = (colour >> 12 & 0xF00) | (colour >> 8 & 0x0F0) | (colour >> 4 & 0x00F);
        // An even column writes its shared byte whole, an odd one ORs into it.
        pixel[0] = static_cast<unsigned char>(isEvenColumn ? nibbles >> 4 : pixel[0] | nibbles >> 8);
        pixel[1] = static_cast<unsigned char>(isEvenColumn ? nibbles << 4 : nibbles);
    }
}

} // namespace PixelFormat

} // namespace Vantor
