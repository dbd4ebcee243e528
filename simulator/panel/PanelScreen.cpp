#include "simulator/panel/PanelScreen.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

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

PanelScreen::PanelScreen(const Size& size, std::vector<std::uint32_t> pixels)
    : m_size(checked(size)), m_pixels(std::move(pixels))
{
    if (m_pixels.size() != std::size_t{m_size.width} * m_size.height)
        throw std::invalid_argument("PanelScreen: " + std::to_string(m_size.width) + "x" +
                                    std::to_string(m_size.height) + " is not " + std::to_string(m_pixels.size()) +
                                    " pixels");
}

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

PanelScreen PanelScreen::getPart(unsigned int x, unsigned int y, const Size& size) const
{
    if (!isPossible(size) || size.width > m_size.width || x > m_size.width - size.width ||
        size.height > m_size.height || y > m_size.height - size.height)
        throw std::out_of_range("PanelScreen: no such part");
    PanelScreen part(size);
    for (std::size_t row = 0; row < size.height; ++row)
        std::copy_n(m_pixels.data() + (y + row) * m_size.width + x, size.width,
                    part.m_pixels.data() + row * size.width);
    return part;
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
