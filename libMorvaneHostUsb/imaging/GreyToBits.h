#pragma once

#include <cstddef>

namespace Vantor {

// Bits of an LCD from grey pixels, as LcdHelper's composites set them; with byte lanes
// where there are any.
namespace GreyToBits {

// In place: 0 below the threshold, else 255.
void threshold(unsigned char* pixels, std::size_t count, int threshold);

struct View {
    const unsigned char* pixels;
    unsigned int width;
    unsigned int height;
};

// Where the picture's first pixel is to lie.
struct Place {
    unsigned int x;
    unsigned int y;
};

// Pages of 8 rows, a byte a column.
void drawPages(unsigned char* lcd, unsigned int lcdWidth, unsigned int lcdHeight, const View& picture,
               const Place& place, int threshold);

// Rows, the most significant bit leftmost. The width is a multiple of 8.
void drawRows(unsigned char* lcd, unsigned int lcdWidth, unsigned int lcdHeight, const View& picture,
              const Place& place, int threshold);

} // namespace GreyToBits

} // namespace Vantor
