#include "simulator/picture/PixelText.h"

#include <cstddef>
#include <cstdint>

namespace Vantor {

namespace {

char toCharacter(std::uint32_t pixel)
{
    if (pixel == PanelScreen::black)
        return '#';
    return pixel == PanelScreen::white ? '.' : '+';
}

} // namespace

std::string PixelText::render(const PanelScreen& screen)
{
    std::string text;
    text.reserve(std::size_t{screen.getWidth() + 1} * screen.getHeight());
    unsigned int column = 0;
    for (const std::uint32_t pixel : screen.getPixels()) {
        text += toCharacter(pixel);
        if (++column == screen.getWidth()) {
            text += '\n';
            column = 0;
        }
    }
    return text;
}

} // namespace Vantor
