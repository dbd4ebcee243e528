#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Vantor {

// What one LCD of a panel shows: a frame buffer with a colour, 0xRRGGBB, for each pixel,
// the top row first. It is white when the panel gets its power.
//
// Threads: one at a time. Lifetime: stands alone.
class PanelScreen {
public:
    // Columns and rows are one byte on the wire, and so are width and height: nothing
    // can be drawn beyond 255 + 255.
    static constexpr unsigned int maxSide = 510;

    static constexpr std::uint32_t white = 0xFFFFFF;
    static constexpr std::uint32_t black = 0x000000;

    struct Size {
        unsigned int width;
        unsigned int height;
    };

    // Both sides 1 to maxSide.
    static bool isPossible(const Size& size);

    // Throws std::invalid_argument for a size that is not possible.
    explicit PanelScreen(const Size& size);

    // The same for another number of pixels than the size has.
    PanelScreen(const Size& size, std::vector<std::uint32_t> pixels);

    unsigned int getWidth() const;
    unsigned int getHeight() const;
    const std::vector<std::uint32_t>& getPixels() const;

    // Throws std::out_of_range outside the screen.
    std::uint32_t getPixel(unsigned int x, unsigned int y) const;

    // A part as a screen of its own. Throws std::out_of_range for one that is not all inside.
    PanelScreen getPart(unsigned int x, unsigned int y, const Size& size) const;

    // Rows of `width` pixels, the last one cut short where `pixels` ends. What lies
    // outside the screen is clipped; pixels that are not there stay as they were.
    void draw(unsigned int x, unsigned int y, unsigned int width, const std::vector<std::uint32_t>& pixels);

private:
    Size m_size;
    std::vector<std::uint32_t> m_pixels;
};

} // namespace Vantor
