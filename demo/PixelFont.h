#pragma once

#include "panelctl/picture/GreyPicture.h"

#include <string>

namespace Vantor {

// Letters of 3 × 5 pixels: capitals and digits; anything else is a blank.
class PixelFont {
public:
    static constexpr unsigned int advance = 4;
    static constexpr unsigned int height = 5;

    // In one shade, the top left corner at (x, y). What reaches past the picture is left out.
    static void write(GreyPicture& picture, unsigned int x, unsigned int y, const std::string& text,
                      std::uint8_t shade);
};

} // namespace Vantor
