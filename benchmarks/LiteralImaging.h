#pragma once

#include "libMorvaneHostUsb/BitmapImage.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Vantor {

// The rules of LcdHelper and of run-length encoding word for word, as one would write them
// down first: what their speed is measured against.
namespace LiteralImaging {

inline void add(unsigned char* image, int x, int y, int width, int height, int delta)
{
    if (x <= 0 || y <= 0 || x >= width || y >= height)
        return;
    const int sum = image[x + width * y] + delta;
    image[x + width * y] = static_cast<unsigned char>(sum < 0 ? 0 : sum);
}

inline void atkinson(unsigned char* image, int x, int y, int width, int height, int error)
{
    add(image, x + 1, y, width, height, error / 8);
    add(image, x + 2, y, width, height, error / 8);
    add(image, x - 1, y + 1, width, height, error / 8);
    add(image, x, y + 1, width, height, error / 8);
    add(image, x + 1, y + 1, width, height, error / 8);
    add(image, x, y + 2, width, height, error / 8);
}

inline void floydSteinberg(unsigned char* image, int x, int y, int width, int height, int error)
{
    add(image, x + 1, y, width, height, error * 7 / 16);
    add(image, x - 1, y + 1, width, height, error * 3 / 16);
    add(image, x, y + 1, width, height, error * 5 / 16);
    add(image, x + 1, y + 1, width, height, error / 16);
}

inline void stucki(unsigned char* image, int x, int y, int width, int height, int error)
{
    add(image, x + 1, y, width, height, error / 6);
    add(image, x + 2, y, width, height, error * 5 / 42);
    add(image, x - 2, y + 1, width, height, error / 21);
    add(image, x - 1, y + 1, width, height, error * 4 / 42);
    add(image, x, y + 1, width, height, error * 8 / 42);
    add(image, x + 1, y + 1, width, height, error * 4 / 42);
    add(image, x + 2, y + 1, width, height, error / 21);
    add(image, x - 2, y + 2, width, height, error / 42);
    add(image, x - 1, y + 2, width, height, error / 21);
    add(image, x, y + 2, width, height, error * 4 / 42);
    add(image, x + 1, y + 2, width, height, error / 21);
    add(image, x + 2, y + 2, width, height, error / 42);
}

// `type` as LcdHelper::DitherType.
inline void dither(unsigned char* image, int width, int height, int type, int threshold)
{
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const int old = image[x + width * y];
            const int level = old < threshold ? 0 : 255;
            image[x + width * y] = static_cast<unsigned char>(level);
            if (type == 1)
                atkinson(image, x, y, width, height, old - level);
            else if (type == 2)
                floydSteinberg(image, x, y, width, height, old - level);
            else if (type == 3)
                stucki(image, x, y, width, height, old - level);
        }
    }
}

inline void drawPages(unsigned char* lcd, unsigned int lcdWidth, unsigned int lcdHeight, const unsigned char* image,
                      unsigned int width, unsigned int height, int x, int y, int threshold)
{
    for (unsigned int r = 0; r < height; ++r) {
        for (unsigned int c = 0; c < width; ++c) {
            const unsigned int column = static_cast<unsigned int>(x) + c;
            const unsigned int row = static_cast<unsigned int>(y) + r;
            if (row < lcdHeight && column < lcdWidth && image[r * width + c] < threshold)
                lcd[row / 8 * lcdWidth + column] =
                    static_cast<unsigned char>(lcd[row / 8 * lcdWidth + column] | 1U << row % 8);
        }
    }
}

inline void drawRows(unsigned char* lcd, unsigned int lcdWidth, unsigned int lcdHeight, const unsigned char* image,
                     unsigned int width, unsigned int height, int x, int y, int threshold)
{
    for (unsigned int r = 0; r < height; ++r) {
        for (unsigned int c = 0; c < width; ++c) {
            const unsigned int column = static_cast<unsigned int>(x) + c;
            const unsigned int row = static_cast<unsigned int>(y) + r;
            if (row < lcdHeight && column < lcdWidth && image[r * width + c] < threshold) {
                unsigned char& byte = lcd[row * lcdWidth / 8 + column / 8];
                byte = static_cast<unsigned char>(byte | 1U << (7 - column % 8));
            }
        }
    }
}

inline void store(BitmapImage& target, int x, int y, unsigned int colour)
{
    const unsigned int red = colour >> 16 & 255;
    const unsigned int green = colour >> 8 & 255;
    const unsigned int blue = colour & 255;
    const int index = x + target.width * y;
    if (target.format == BitmapImage::Rgb565) {
        const unsigned int word = (red >> 3) << 11 | (green >> 2) << 5 | blue >> 3;
        target.data[index * 2] = static_cast<unsigned char>(word);
        target.data[index * 2 + 1] = static_cast<unsigned char>(word >> 8);
    } else if (target.format == BitmapImage::Rgb888) {
        const auto at = static_cast<std::uint16_t>(index * 3);
        target.data[at] = static_cast<unsigned char>(red);
        target.data[at + 1] = static_cast<unsigned char>(green);
        target.data[at + 2] = static_cast<unsigned char>(blue);
    } else if (target.format == BitmapImage::Rgb444 && x % 2 == 0) {
        target.data[index * 12 / 8] = static_cast<unsigned char>((red >> 4) << 4 | green >> 4);
        target.data[index * 12 / 8 + 1] = static_cast<unsigned char>((blue >> 4) << 4);
    } else if (target.format == BitmapImage::Rgb444) {
        target.data[index * 12 / 8] = static_cast<unsigned char>(target.data[index * 12 / 8] | red >> 4);
        target.data[index * 12 / 8 + 1] = static_cast<unsigned char>((green >> 4) << 4 | blue >> 4);
    }
}

inline void copy(BitmapImage& target, const BitmapImage& source, int x, int y)
{
    for (int r = 0; r < source.height; ++r) {
        for (int c = 0; c < source.width; ++c) {
            if (x + c >= 0 && x + c < target.width && y + r >= 0 && y + r < target.height)
                store(target, x + c, y + r, source.getRgbPixel(c, r));
        }
    }
}

inline std::vector<std::uint32_t> compress(const unsigned int* pixels, int width, int height)
{
    std::vector<std::uint32_t> words;
    words.reserve(static_cast<std::size_t>(height + height * width / 4));
    for (int row = 0; row < height; ++row) {
        words.push_back(0xFFFFFFFF);
        for (int column = 0; column < width;) {
            const unsigned int pixel = pixels[row * width + column];
            unsigned int count = 0;
            while (column < width && count < 255 && pixels[row * width + column] == pixel) {
                ++count;
                ++column;
            }
            words.push_back(count | (pixel >> 16 & 255) << 8 | (pixel >> 8 & 255) << 16 | (pixel & 255) << 24);
        }
    }
    return words;
}

} // namespace LiteralImaging

} // namespace Vantor
