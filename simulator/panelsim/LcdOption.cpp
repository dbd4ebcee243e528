#include "simulator/panelsim/LcdOption.h"

#include "simulator/bus/QuantityText.h"
#include "simulator/bus/UserText.h"

#include <cstdint>
#include <string>

namespace Vantor {

ParsedLcdOption parseLcdOption(std::string_view text)
{
    const std::size_t equals = text.find('=');
    const std::size_t times = equals != std::string_view::npos ? text.find('x', equals) : equals;
    if (times == std::string_view::npos)
        return {std::nullopt, "expected L=WxH such as 0=128x64, found '" + UserText::shown(text) + "'"};
    const std::string_view lcdText = text.substr(0, equals);
    const auto lcd = parseNumber(lcdText, UINT16_MAX);
    if (!lcd)
        return {std::nullopt, "LCDs are numbered 0 to 65535, found '" + UserText::shown(lcdText) + "'"};
    const auto width = parseNumber(text.substr(equals + 1, times - equals - 1), PanelScreen::maxSide);
    const auto height = parseNumber(text.substr(times + 1), PanelScreen::maxSide);
    const PanelScreen::Size size{static_cast<unsigned int>(width.value_or(0)),
                                 static_cast<unsigned int>(height.value_or(0))};
    if (!PanelScreen::isPossible(size))
        return {std::nullopt, "an LCD is 1x1 to " + std::to_string(PanelScreen::maxSide) + "x" +
                                  std::to_string(PanelScreen::maxSide) + " pixels, found '" +
                                  UserText::shown(text.substr(equals + 1)) + "'"};
    return {LcdOption{static_cast<std::uint16_t>(*lcd), size}, {}};
}

} // namespace Vantor
