#include "simulator/panelsim/LcdOption.h"

#include "simulator/bus/UserText.h"

#include <charconv>
#include <system_error>

namespace Vantor {

namespace {

// The decimal number that is all of `text`, up to `highest`.
std::optional<unsigned int> parseNumber(std::string_view text, unsigned int highest)
{
    unsigned int number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || rest != end || number > highest)
        return std::nullopt;
    return number;
}

} // namespace

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
    if (!width || !height || !PanelScreen::isPossible({*width, *height}))
        return {std::nullopt, "an LCD is 1x1 to " + std::to_string(PanelScreen::maxSide) + "x" +
                                  std::to_string(PanelScreen::maxSide) + " pixels, found '" +
                                  UserText::shown(text.substr(equals + 1)) + "'"};
    return {LcdOption{static_cast<std::uint16_t>(*lcd), {*width, *height}}, {}};
}

} // namespace Vantor
