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

// Every value of so many bits, spread over 0 to 255, at its place in a colour.
template <std::size_t count> constexpr std::array<std::uint32_t, count> spread(unsigned int place)
{
    std::array<std::uint32_t, count> levels{};
    for (std::size_t value = 0; value < count; ++value)
        levels[value] = static_cast<std::uint32_t>(value * 255 / (count - 1)) << place;
    return levels;
}

inline constexpr auto redOfRgb565 = spread<32>(16);
inline constexpr auto greenOfRgb565 = spread<64>(8);
inline constexpr auto blueOfRgb565 = spread<32>(0);

constexpr std::array<std::uint32_t, 256> coloursOfRgb332()
{
    std::array<std::uint32_t, 256> colours{};
    for (unsigned int pixel = 0; pixel < 256; ++pixel)
        colours[pixel] = rgb((pixel >> 5) * 255 / 7, (pixel >> 2 & 7) * 255 / 7, (pixel & 3) * 85);
    return colours;
}

inline constexpr auto ofRgb332 = coloursOfRgb332();

// Each level × alpha / 255, without a division: (product + 1 + (product >> 8)) >> 8. That is
// below 65,536 before the last shift, so that red and blue are multiplied at once.
constexpr std::uint32_t fade(unsigned int red, unsigned int green, unsigned int blue, unsigned int alpha)
{
    std::uint32_t redAndBlue = (red << 16 | blue) * alpha;
    redAndBlue = redAndBlue + 0x10001 + (redAndBlue >> 8 & 0xFF00FF);
    std::uint32_t faded = green * alpha;
    faded = faded + 1 + (faded >> 8);
    return (redAndBlue >> 8 & 0xFF00FF) | (faded & 0xFF00);
}

// The parity of the column, not of the pixel's index, picks the nibbles of Rgb444: images
// of odd width read differently on odd rows.
template <int format> inline std::uint32_t read(const unsigned char* data, std::size_t index, bool isEvenColumn)
{
    if constexpr (format == BitmapImage::Gray8) {
        return data[index];
    } else if constexpr (format == BitmapImage::Rgb332) {
        return ofRgb332[data[index]];
    } else if constexpr (format == BitmapImage::Rgb444) {
        const unsigned char* const bytes = data + index * 3 / 2;
        const unsigned int both = static_cast<unsigned int>(bytes[0]) << 8 | bytes[1];
        const unsigned int nibbles = isEvenColumn ? both >> 4 : both & 0xFFF;
        return ((nibbles & 0xF00) << 8 | (nibbles & 0x0F0) << 4 | (nibbles & 0x00F)) * 17;
    } else if constexpr (format == BitmapImage::Rgb565) {
        const unsigned int pixel = data[index * 2] | static_cast<unsigned int>(data[index * 2 + 1]) << 8;
        return redOfRgb565[pixel >> 11] | greenOfRgb565[pixel >> 5 & 63] | blueOfRgb565[pixel & 31];
    } else if constexpr (format == BitmapImage::Rgb888) {
        return rgb(data[index * 3], data[index * 3 + 1], data[index * 3 + 2]);
    } else if constexpr (format == BitmapImage::Rgba8888) {
        const unsigned char* const bytes = data + index * 4;
        return fade(bytes[0], bytes[1], bytes[2], bytes[3]);
    } else {
        return 0;
    }
}

constexpr unsigned int nibblesOf(std::uint32_t colour)
{
    return (colour >> 12 & 0xF00) | (colour >> 8 & 0x0F0) | (colour >> 4 & 0x00F);
}

template <int format> inline void write(unsigned char* data, std::size_t index, bool isEvenColumn, std::uint32_t colour)
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
        const unsigned int nibbles = nibblesOf(colour);
        // An even column writes its shared byte whole, an odd one ORs into it.
        pixel[0] = static_cast<unsigned char>(isEvenColumn ? nibbles >> 4 : pixel[0] | nibbles >> 8);
        pixel[1] = static_cast<unsigned char>(isEvenColumn ? nibbles << 4 : nibbles);
    }
}

// The pixels of an even column and of the next.
template <int format>
inline void writePair(unsigned char* data, std::size_t index, std::uint32_t even, std::uint32_t odd)
{
    if constexpr (format == BitmapImage::Rgb444) {
        // Where the row begins with a whole byte the two have three bytes for themselves.
        if (index % 2 == 0) {
            unsigned char* const bytes = data + index / 2 * 3;
            const unsigned int nibbles = nibblesOf(even) << 12 | nibblesOf(odd);
            bytes[0] = static_cast<unsigned char>(nibbles >> 16);
            bytes[1] = static_cast<unsigned char>(nibbles >> 8);
            bytes[2] = static_cast<unsigned char>(nibbles);
            return;
        }
    }
    write<format>(data, index, true, even);
    write<format>(data, index + 1, false, odd);
}

} // namespace PixelFormat

} // namespace Vantor
