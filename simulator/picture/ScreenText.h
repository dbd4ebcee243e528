#pragma once

#include "simulator/panel/PanelScreen.h"

#include <string>

namespace Vantor {

// A screen as text: half blocks, two rows of pixels in a line of UTF-8, a column for
// each pixel. A pixel is dark or light, which are the two that an LCD of 1 bit has;
// colours are told apart by their brightness.
class ScreenText {
public:
    enum class Background {
        Paper,   // dark pixels are blocks, light ones blanks
        Terminal // the same, with escape sequences for black on white
    };

    // Every line ends in a newline.
    static std::string render(const PanelScreen& screen, Background background);
};

} // namespace Vantor
