#pragma once

#include <cstddef>
#include <cstdint>

namespace Vantor {

// Pixels to bits, many at a time; see Lanes.h for where. Those of grey pixels below a
// threshold, 0 to 256, take as many as they can from the first on, and return how many.
namespace LanePacking {

// In place: 0 below the threshold, else 255.
std::size_t dither(unsigned char* pixels, std::size_t count, int threshold);

// Sets bits of bytes, a byte for a column: the pixels of rows that are `stride` apart go to
// the bits from `firstBit` on, the least significant one first.
std::size_t packColumns(unsigned char* bytes, const unsigned char* pixels, std::size_t stride, unsigned int rows,
                        unsigned int firstBit, std::size_t count, int threshold);

// Sets bits of bytes, from the most significant one of the first on.
std::size_t packRow(unsigned char* bytes, const unsigned char* pixels, std::size_t count, int threshold);

constexpr int runStep = 32;

// For so many pixels of as many bits, of which bit i tells whether pixel i is another than the
// next: the one behind them is read, too.
std::uint32_t findEndsOfRuns(const unsigned int* pixels);

} // namespace LanePacking

} // namespace Vantor
