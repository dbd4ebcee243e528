#include "simulator/picture/ScreenText.h"

#include <cstdint>

namespace Vantor {

namespace {

// Of red, green and blue as the eye weighs them, in thousandths.
bool isDark(std::uint32_t pixel)
{
    const std::uint32_t brightness = (pixel >> 16) * 299 + (pixel >> 8 & 0xFF) * 587 + (pixel & 0xFF) * 114;
    return brightness < 128 * 1000;
}

const char* toBlock(bool upper, bool lower)
{
    if (upper)
        return lower ? "\u2588" : "\u2580";
    return lower ? "\u2584" : " ";
}

} // namespace

std::string ScreenText::render(const PanelScreen& screen, Background background)
{
    const bool coloured = background == Background::Terminal;
    std::string text;
    for (unsigned int y = 0; y < screen.getHeight(); y += 2) {
        if (coloured)
            text += "\x1B[30;107m";
        for (unsigned int x = 0; x < screen.getWidth(); ++x) {
            const bool hasLower = y + 1 < screen.getHeight();
            text += toBlock(isDark(screen.getPixel(x, y)), hasLower && isDark(screen.getPixel(x, y + 1)));
        }
        text += coloured ? "\x1B[0m\n" : "\n";
    }
    return text;
}

} // namespace Vantor
