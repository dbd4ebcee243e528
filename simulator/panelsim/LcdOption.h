#pragma once

#include "simulator/panel/PanelScreen.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Vantor {

// The size of one LCD as it is written on a command line: L=WxH.
struct LcdOption {
    std::uint16_t lcd;
    PanelScreen::Size size;
};

// Without an option: `error` says what is wrong and what is allowed.
struct ParsedLcdOption {
    std::optional<LcdOption> option;
    std::string error;
};

ParsedLcdOption parseLcdOption(std::string_view text);

} // namespace Vantor
