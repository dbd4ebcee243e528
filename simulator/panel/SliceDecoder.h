#pragma once

#include "protocol/PacketType.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Vantor {

// Reads the payload of one LCD slice record: some rows of one LCD, 7 bytes of header
// (LCD, left column, top row, width, rows, bits per pixel) and the pixels. Written from
// the wire's description alone, so that it can judge whoever writes slices.
//
// Packed pixels (type 38): all rows are one run of bits, the most significant bit
// first, without padding at row ends. It is cut to whole bytes, floor(rows × width ×
// bits / 8), so that the last bits of a slice can be missing.
//
//   bits  a pixel's bits, in this order
//   1     1 is on
//   8     RRRGGGBB
//   12    RRRR GGGG BBBB
//   16    GGGBBBBB RRRRRGGG (a 16-bit word, low byte first)
//   24    RRRRRRRR GGGGGGGG BBBBBBBB
//
// Run-length words (type 46), four bytes each: every row begins with the row marker
// FF FF FF FF, followed by runs `count value[16-23] value[8-15] value[0-7]`, count 1 to
// 255, that add up to the width. A value is the pixel's code in the depth of the slice:
// RRRGGGBB, 0xRGB, RRRRRGGGGGGBBBBB or 0xRRGGBB; bits above the code are ignored. In 1
// bit per pixel every value but 0 is on. A run of 255 pixels of 0xFFFFFF is the same
// word as a row marker and is read as one.
class SliceDecoder {
public:
    struct Slice {
        std::uint16_t lcd;
        std::uint8_t x;
        std::uint8_t y;
        std::uint8_t width;
        std::uint8_t rows;
        std::uint8_t bitsPerPixel;
        // 0xRRGGBB, rows × width, without those whose bits are missing at the end. A
        // pixel that is on is black, one that is off is white.
        std::vector<std::uint32_t> pixels;
    };

    // One of the two: a slice that contradicts itself, or has no row or no column, has no
    // pixels at all.
    struct Result {
        std::optional<Slice> slice;
        std::string violation; // which slice, and what contradicts what
    };

    // `type` is LcdSlice or EncodedLcdSlice.
    static Result decode(PacketType type, const std::vector<std::uint8_t>& payload);
};

} // namespace Vantor
