#pragma once

#include <cstddef>
#include <cstdint>

namespace Vantor {

// A monochrome 144 × 168 LCD: 168 rows of 18 bytes, the leftmost pixel in the most
// significant bit.
struct __attribute__((packed)) TransLcdBitmap {
    static constexpr unsigned int width = 144;
    static constexpr unsigned int height = 168;

    std::uint8_t header[2]; // belongs to the panel's protocol; never touched here
    std::uint8_t data[3024];
};

static_assert(sizeof(TransLcdBitmap) == 3026);
static_assert(alignof(TransLcdBitmap) == 1);
static_assert(offsetof(TransLcdBitmap, data) == 2);

} // namespace Vantor
