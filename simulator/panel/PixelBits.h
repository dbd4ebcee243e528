#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Vantor {

// Pixels of two colours, a bit each, the most significant one first.
class PixelBits {
public:
    // Eight for each byte. Half a byte at a time: this runs for every pixel of nearly every
    // slice, and again for each picture that somebody watches.
    static std::vector<std::uint32_t> unpack(const std::vector<std::uint8_t>& bytes, std::uint32_t zero,
                                             std::uint32_t one)
    {
        using Four = std::array<std::uint32_t, 4>;
        std::array<Four, 16> halves{};
        for (std::size_t half = 0; half < halves.size(); ++half)
            for (std::size_t pixel = 0; pixel < 4; ++pixel)
                halves[half][pixel] = (half >> (3 - pixel) & 1) != 0 ? one : zero;

        std::vector<std::uint32_t> pixels(bytes.size() * 8);
        std::uint32_t* next = pixels.data();
        for (const std::uint8_t byte : bytes) {
            next = std::copy_n(halves[byte >> 4].data(), 4, next);
            next = std::copy_n(halves[byte & 15].data(), 4, next);
        }
        return pixels;
    }
};

} // namespace Vantor
