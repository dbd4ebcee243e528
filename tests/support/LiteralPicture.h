#pragma once

#include "tests/support/Bytes.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Vantor {

// Pictures as the wire's description has them, bit by bit: pixel codes of a depth, the
// colours that they stand for and the bytes that they make.

inline std::uint32_t literalColour(unsigned int depth, std::uint32_t code)
{
    const auto spread = [code](unsigned int shift, std::uint32_t highest) {
        return (code >> shift & highest) * 255 / highest;
    };
    switch (depth) {
    case 1:
        return code != 0 ? 0x000000 : 0xFFFFFF;
    case 8:
        return spread(5, 7) << 16 | spread(2, 7) << 8 | spread(0, 3);
    case 12:
        return spread(8, 15) << 16 | spread(4, 15) << 8 | spread(0, 15);
    case 16:
        return spread(11, 31) << 16 | spread(5, 63) << 8 | spread(0, 31);
    default:
        return code;
    }
}

// One run of bits, the most significant bit first, filled up to a whole byte with zeros.
// The two bytes of a 16-bit code go low byte first.
inline Bytes literalBits(unsigned int depth, const std::vector<std::uint32_t>& codes)
{
    Bytes bytes((codes.size() * depth + 7) / 8);
    std::size_t at = 0;
    for (std::uint32_t code : codes) {
        if (depth == 16)
            code = (code & 0xFF) << 8 | code >> 8;
        for (unsigned int bit = depth; bit-- > 0; ++at) {
            if ((code >> bit & 1) != 0)
                bytes[at / 8] = static_cast<std::uint8_t>(bytes[at / 8] | 0x80U >> at % 8);
        }
    }
    return bytes;
}

// What an LCD should show after pictures have been put on it in turn.
class LiteralScreen {
public:
    LiteralScreen(unsigned int width, unsigned int height)
        : m_width(width), m_height(height), m_pixels(std::size_t{width} * height, 0xFFFFFF)
    {}

    void draw(unsigned int x, unsigned int y, unsigned int width, unsigned int depth,
              const std::vector<std::uint32_t>& codes)
    {
        for (std::size_t i = 0; i < codes.size(); ++i) {
            const std::size_t column = x + i % width;
            const std::size_t row = y + i / width;
            if (column < m_width && row < m_height)
                m_pixels[row * m_width + column] = literalColour(depth, codes[i]);
        }
    }

    const std::vector<std::uint32_t>& getPixels() const { return m_pixels; }

private:
    std::size_t m_width;
    std::size_t m_height;
    std::vector<std::uint32_t> m_pixels;
};

} // namespace Vantor
