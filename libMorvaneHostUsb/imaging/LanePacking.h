#pragma once

#include <cstddef>

namespace Vantor {

// Grey pixels below a threshold, 0 to 256, as bits, sixteen at a time; see Lanes.h for
// where. Each takes as many as it can from the first on, and returns how many.
namespace LanePacking {

// In place: 0 below the threshold, else 255.
std::size_t dither(unsigned char* pixels, std::size_t count, int threshold);

// Sets bits of bytes, a byte for a column: the pixels of rows that are `stride` apart go to
// the bits from `firstBit` on, the least significant one first.
std::size_t packColumns(unsigned char* bytes, const unsigned char* pixels, std::size_t stride, unsigned int rows,
                        unsigned int firstBit, std::size_t count, int threshold);

// Sets bits of bytes, from the most significant one of the first on.
std::size_t packRow(unsigned char* bytes, const unsigned char* pixels, std::size_t count, int threshold);

} // namespace LanePacking

} // namespace Vantor
