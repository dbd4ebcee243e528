#pragma once

#include "simulator/panel/PanelScreen.h"

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace Vantor {

// The colours of an animation: its own, as long as they are at most 256. With more, each
// is taken for the nearest of 216: 6 levels of red by 6 of green by 6 of blue.
class GifPalette {
public:
    static constexpr std::size_t maxColours = 256;

    void add(const PanelScreen& screen);

    // In the order in which they were met.
    std::vector<std::uint32_t> getColours() const;

    // Of a screen that was added, and after the last one was.
    std::vector<std::uint8_t> getIndices(const PanelScreen& screen) const;

private:
    std::unordered_map<std::uint32_t, std::uint8_t> m_indices;
    std::vector<std::uint32_t> m_colours;
    bool m_reduced = false;
};

} // namespace Vantor
