#pragma once

#include "simulator/panel/PanelScreen.h"

#include <cstdint>
#include <vector>

namespace Vantor {

// A screen as a PNG file: 8 bits of grey when every pixel is a grey (black and white
// are), else 8 bits each of red, green and blue.
class PngEncoder {
public:
    // Throws std::invalid_argument for a zoom that is none, std::runtime_error with what
    // libpng says.
    static std::vector<std::uint8_t> encode(const PanelScreen& screen, unsigned int zoom = 1);
};

} // namespace Vantor
