#include "simulator/panel/PanelScreen.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace Vantor {

namespace {

const PanelScreen::Size& checked(const PanelScreen::Size& size)
{
    if (!PanelScreen::isPossible(size))
        throw std::invalid_argument("PanelScreen: no LCD has " + std::to_string(size.width) + "x" +
                                    std::to_string(size.height) + " pixels");
    return size;
}

} // namespace

bool PanelScreen::isPossible(const Size& size)
{
    return size.width >= 1 && size.width <= maxSide && size.height >= 1 && size.height <= maxSide;
}

PanelScreen::PanelScreen(const Size& size)
    : m_size(checked(size)), m_pixels(static_cast<std::size_t>(size.width) * size.height, white)
{}

unsigned int PanelScreen::getWidth() const
{
    return m_size.width;
}

unsigned int PanelScreen::getHeight() const
{
    return m_size.height;
}

const std::vector<std::uint32_t>& PanelScreen::getPixels() const
{
    return m_pixels;
}

std::uint32_t PanelScreen::getPixel(unsigned int x, unsigned int y) const
{
    if (x >= m_size.width || y >= m_size.height)
        throw std::out_of_range("PanelScreen: no such pixel");
    return m_pixels[static_cast<std::size_t>(y) * m_size.width + x];
}

void PanelScreen::draw(unsigned int x, unsigned int y, unsigned int width, const std::vector<std::uint32_t>& pixels)
{
    if (width == 0 || x >= m_size.width)
        return;
    const std::size_t visible = std::min(width, m_size.width - x);
    std::size_t row = y;
    for (std::size_t begin = 0; begin < pixels.size() && row < m_size.height; begin += width, ++row) {
        const std::size_t count = std::min(visible, pixels.size() - begin);
        std::copy_n(pixels.data() + begin, count, m_pixels.data() + row * m_size.width + x);
    }
}

} // namespace Vantor
