#include "simulator/picture/GifPalette.h"

namespace Vantor {

namespace {

constexpr unsigned int levels = 6;
constexpr unsigned int step = 0xFF / (levels - 1);

unsigned int toLevel(std::uint32_t sample)
{
    return (sample + step / 2) / step;
}

std::uint8_t toReduced(std::uint32_t pixel)
{
    const unsigned int red = toLevel(pixel >> 16 & 0xFF);
    const unsigned int green = toLevel(pixel >> 8 & 0xFF);
    return static_cast<std::uint8_t>((red * levels + green) * levels + toLevel(pixel & 0xFF));
}

std::vector<std::uint32_t> reducedColours()
{
    std::vector<std::uint32_t> colours;
    for (unsigned int red = 0; red < levels; ++red)
        for (unsigned int green = 0; green < levels; ++green)
            for (unsigned int blue = 0; blue < levels; ++blue)
                colours.push_back((red << 16 | green << 8 | blue) * step);
    return colours;
}

} // namespace

void GifPalette::add(const PanelScreen& screen)
{
    for (const std::uint32_t pixel : screen.getPixels()) {
        if (m_reduced)
            return;
        if (m_indices.count(pixel) != 0)
            continue;
        if (m_colours.size() == maxColours) {
            m_reduced = true;
            return;
        }
        m_indices.emplace(pixel, static_cast<std::uint8_t>(m_colours.size()));
        m_colours.push_back(pixel);
    }
}

std::vector<std::uint32_t> GifPalette::getColours() const
{
    return m_reduced ? reducedColours() : m_colours;
}

std::vector<std::uint8_t> GifPalette::getIndices(const PanelScreen& screen) const
{
    std::vector<std::uint8_t> indices;
    indices.reserve(screen.getPixels().size());
    for (const std::uint32_t pixel : screen.getPixels())
        indices.push_back(m_reduced ? toReduced(pixel) : m_indices.at(pixel));
    return indices;
}

} // namespace Vantor
