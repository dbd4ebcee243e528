#pragma once

#include <stdexcept>
#include <string>

namespace Vantor {

// How many pixels of a picture, each way, one pixel of a screen becomes.
namespace Zoom {

constexpr unsigned int max = 8;

// Throws std::invalid_argument.
inline void require(unsigned int zoom)
{
    if (zoom < 1 || zoom > max)
        throw std::invalid_argument("a zoom is 1 to " + std::to_string(max) + ", not " + std::to_string(zoom));
}

} // namespace Zoom

} // namespace Vantor
