#pragma once

#include "simulator/panel/PanelScreen.h"

#include <string>

namespace Vantor {

// Writes a screen as a PNG file: 8 bits of grey when every pixel is a grey (black and
// white are), else 8 bits each of red, green and blue.
class PngWriter {
public:
    // Replaces a file of that name as OutputFile does. Throws std::runtime_error with the
    // path and the cause.
    static void write(const std::string& path, const PanelScreen& screen);
};

} // namespace Vantor
