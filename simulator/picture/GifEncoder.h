#pragma once

#include "simulator/panel/PanelScreen.h"

#include <chrono>
#include <cstdint>
#include <vector>

namespace Vantor {

// What a screen showed, as a GIF that runs in a loop. Of each picture only the rectangle
// that has changed is stored, and of equal ones that follow each other one. Its colours
// are those of GifPalette.
class GifEncoder {
public:
    struct Frame {
        PanelScreen screen;
        std::chrono::microseconds shown; // for how long
    };

    // A GIF counts in hundredths of a second: a picture begins at the nearest one, so that
    // errors don't add up. One that would be shown for less than minDelay leaves its time to
    // the next: viewers take that for a tenth of a second.
    static constexpr std::chrono::milliseconds minDelay{20};
    static constexpr std::chrono::milliseconds maxDelay{655350};

    // A single picture, or many that are equal, is a GIF that does not move. Throws
    // std::invalid_argument without frames, with sizes that differ, a time below 0 or above
    // maxDelay, a zoom that is none; std::runtime_error with what giflib says.
    static std::vector<std::uint8_t> encode(const std::vector<Frame>& frames, unsigned int zoom = 1);
};

} // namespace Vantor
