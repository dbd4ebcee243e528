#pragma once

#include "libMorvaneHostUsb/ClientLcdBitmap.h"
#include "panelctl/picture/GreyPicture.h"

#include <cstdint>
#include <vector>

namespace Vantor {

// Turns a dithered picture into layers of 1 bit a pixel that show it exactly, and draw
// nothing outside it; a pixel darker than 128 is on. All of one LCD.
class PictureLayers {
public:
    struct Place {
        std::uint16_t lcd;
        std::uint8_t x;
        std::uint8_t y;
    };

    enum class Form {
        Raw,
        RunLength,
    };

    // The form that the picture can take, given the one wanted. A raw slice is one run of
    // bits, cut to whole bytes: only rows of whole bytes survive every way of slicing.
    // Other widths get a second layer for their last 8 columns, which the first layer
    // reaches only in part; where there is no room for one, run-length words do.
    static Form choose(Form wanted, unsigned int width, const Place& place);

    // One layer, or two for a raw picture whose width is not a multiple of 8. `form` as
    // chosen; both sides of the picture at most 255.
    static std::vector<ClientLcdBitmap> make(const GreyPicture& picture, const Place& place, Form form);

    // Bytes of the longest row as run-length words.
    static std::size_t getLongestRow(const ClientLcdBitmap& encoded);
};

} // namespace Vantor
