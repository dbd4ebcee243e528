#pragma once

#include <cstddef>

namespace Vantor {

// Error diffusion in byte lanes: a lane for each of some rows, each some pixels behind the
// row above it, so that what a pixel receives is there when its lane comes to it.
//
// Sources built for a processor with such lanes; see Lanes.h for whether this one has them.
namespace WavefrontDither {

// Dithers whole bands of rows from the top, and returns the first row that it left: one
// with few below it. What that row and the next receive from above is in them.
std::ptrdiff_t floydSteinberg(unsigned char* image, std::ptrdiff_t width, std::ptrdiff_t height, int threshold);
std::ptrdiff_t atkinson(unsigned char* image, std::ptrdiff_t width, std::ptrdiff_t height, int threshold);
std::ptrdiff_t stucki(unsigned char* image, std::ptrdiff_t width, std::ptrdiff_t height, int threshold);

} // namespace WavefrontDither

} // namespace Vantor
