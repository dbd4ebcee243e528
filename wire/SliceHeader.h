#pragma once

#include <cstddef>
#include <cstdint>

namespace Vantor {

// Start of an LCD slice's payload (types 38 and 46); the rows' data follows.
struct __attribute__((packed)) SliceHeader {
    // In front of every row of run-length words.
    static constexpr std::uint32_t rowMarker = 0xFFFFFFFF;

    std::uint16_t lcd;
    std::uint8_t x; // left column on the LCD
    std::uint8_t y; // row on the LCD of the slice's first row
    std::uint8_t width;
    std::uint8_t rows; // in this slice
    std::uint8_t bitsPerPixel;
};

static_assert(sizeof(SliceHeader) == 7);
static_assert(alignof(SliceHeader) == 1);
static_assert(offsetof(SliceHeader, lcd) == 0);
static_assert(offsetof(SliceHeader, x) == 2);
static_assert(offsetof(SliceHeader, y) == 3);
static_assert(offsetof(SliceHeader, width) == 4);
static_assert(offsetof(SliceHeader, rows) == 5);
static_assert(offsetof(SliceHeader, bitsPerPixel) == 6);

} // namespace Vantor
