#pragma once

#include "simulator/web/PanelBoard.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Vantor {

// A part of a picture as it is told and kept: of at most two colours, a bit for each pixel,
// row by row without padding, the most significant bit first; of more, three bytes for each.
struct ScreenPatch {
    PanelBoard::Area area;
    std::vector<std::uint32_t> colours; // 0xRRGGBB, one or two; empty: `bytes` are red, green, blue
    std::vector<std::uint8_t> bytes;

    // Of the area's pixels.
    static ScreenPatch make(const PanelBoard::Area& area, const std::vector<std::uint32_t>& pixels);

    // Into a picture of this width that has the area.
    void draw(std::vector<std::uint32_t>& picture, unsigned int width) const;

    // The members of a JSON object, without braces.
    std::string asJson() const;
};

} // namespace Vantor
