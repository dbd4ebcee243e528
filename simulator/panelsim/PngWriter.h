#pragma once

#include "simulator/panel/PanelScreen.h"

#include <string>

namespace Vantor {

// Writes a screen as a PNG file.
class PngWriter {
public:
    // Replaces a file of that name as OutputFile does. Throws std::runtime_error with the
    // path and the cause.
    static void write(const std::string& path, const PanelScreen& screen);
};

} // namespace Vantor
