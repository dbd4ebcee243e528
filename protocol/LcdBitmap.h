#pragma once

#include <cstddef>
#include <cstdint>

namespace Vantor {

// A monochrome 128 × 64 LCD: 8 pages of 128 bytes. Byte (y / 8) × 128 + x of data
// holds column x of the page's 8 rows, the top row in the least significant bit.
struct __attribute__((packed)) LcdBitmap {
    static constexpr unsigned int width = 128;
    static constexpr unsigned int height = 64;

    std::uint8_t header[2]; // belongs to the panel's protocol; never touched here
    std::uint8_t data[1024];
};

static_assert(sizeof(LcdBitmap) == 1026);
static_assert(alignof(LcdBitmap) == 1);
static_assert(offsetof(LcdBitmap, data) == 2);

} // namespace Vantor
