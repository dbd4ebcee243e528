#pragma once

#include "simulator/panel/PanelScreen.h"

#include <string>

namespace Vantor {

// A screen as text, a character a pixel: '#' is black, '.' white, '+' any other colour.
class PixelText {
public:
    // A line a row, each with its newline.
    static std::string render(const PanelScreen& screen);
};

} // namespace Vantor
