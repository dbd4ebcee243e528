#pragma once

#include "tests/support/Bytes.h"

#include <cstddef>
#include <cstdint>

namespace Vantor {

// A grey picture put on a 1-bit LCD, asked pixel by pixel of the LCD: what
// LcdHelper's compositing, which goes pixel by pixel of the picture, is measured
// against.
struct LiteralComposite {
    const Bytes& grey;
    unsigned int width;
    unsigned int height;
    int x; // of the picture on the LCD
    int y;
    int threshold;

    // Whether the picture makes the LCD's pixel (column, row) dark.
    bool isDark(unsigned int column, unsigned int row) const
    {
        const std::int64_t sourceColumn = std::int64_t{column} - x;
        const std::int64_t sourceRow = std::int64_t{row} - y;
        if (sourceColumn < 0 || sourceColumn >= width || sourceRow < 0 || sourceRow >= height)
            return false;
        return grey.at(static_cast<std::size_t>(sourceRow * width + sourceColumn)) < threshold;
    }

    // Pages of eight rows, the top row in the least significant bit; what was set stays.
    void drawPages(Bytes& lcd, unsigned int lcdWidth, unsigned int lcdHeight) const
    {
        for (unsigned int row = 0; row < lcdHeight; ++row) {
            for (unsigned int column = 0; column < lcdWidth; ++column) {
                if (isDark(column, row))
                    set(lcd.at(row / 8 * lcdWidth + column), 1U << row % 8);
            }
        }
    }

    // Rows of whole bytes, the leftmost pixel in the most significant bit.
    void drawRows(Bytes& lcd, unsigned int lcdWidth, unsigned int lcdHeight) const
    {
        for (unsigned int row = 0; row < lcdHeight; ++row) {
            for (unsigned int column = 0; column < lcdWidth; ++column) {
                if (isDark(column, row))
                    set(lcd.at(row * (lcdWidth / 8) + column / 8), 0x80U >> column % 8);
            }
        }
    }

private:
    static void set(std::uint8_t& byte, unsigned int bits) { byte = static_cast<std::uint8_t>(byte | bits); }
};

} // namespace Vantor
