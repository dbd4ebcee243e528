#pragma once

#include "libMorvaneHostUsb/imaging/Diffusion.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace Vantor {

// Error diffusion with a table, for any processor. What follows from a pixel is looked up
// by the sum of its level and of what its left neighbour gives, as that sum is: below 0,
// above 255. So a pixel waits for one addition and one load after the one before.
template <typename Diffusion> class TableDither {
public:
    explicit TableDither(int threshold)
    {
        for (int sum = lowestSum; sum <= highestSum; ++sum) {
            Entry& entry = m_entries[sum - lowestSum];
            entry = sum > 255 ? m_entries[sum - 256 - lowestSum] : Entry(levelOf(sum), threshold);
            m_toTheRight[sum - lowestSum] = entry.given[shares[0].part];
        }
    }

    // Dithers from this row on; the rows above are done.
    void dither(unsigned char* image, std::ptrdiff_t width, std::ptrdiff_t height, std::ptrdiff_t firstRow) const
    {
        for (std::ptrdiff_t y = firstRow; y < height; ++y)
            ditherRow(Picture{image, width, height}, y);
    }

private:
    static constexpr const auto& shares = Diffusion::shares;
    static constexpr const auto& parts = Diffusion::parts;
    using Others = std::make_index_sequence<shares.size() - 1>; // but for the right neighbour's share

    // What a pixel gives its right neighbour lies between.
    static_assert(parts[shares[0].part].of(255) <= 127);
    static constexpr std::ptrdiff_t lowestSum = -128;
    static constexpr std::ptrdiff_t highestSum = 383;

    static constexpr std::ptrdiff_t reachDown = shares.back().dy; // the last is the lowest
    static constexpr std::ptrdiff_t reachAside = Vantor::reachAside(shares);

    struct Picture {
        unsigned char* pixels;
        std::ptrdiff_t width;
        std::ptrdiff_t height;
    };

    // Eight bytes, or two, so that an index need not be multiplied.
    struct alignas(parts.size() > 1 ? 8 : 2) Entry {
        Entry() = default;
        Entry(int old, int threshold) : level(old < threshold ? 0 : 255)
        {
            for (std::size_t i = 0; i < parts.size(); ++i)
                given[i] = static_cast<std::int8_t>(level == 0 ? parts[i].of(old) : -parts[i].of(255 - old));
        }

        std::int8_t given[parts.size()];
        std::uint8_t level;
    };

    // Not clamped at the top: sums above 255 wrap.
    static unsigned char levelOf(int sum) { return static_cast<unsigned char>(sum < 0 ? 0 : sum); }

    void ditherRow(const Picture& picture, std::ptrdiff_t y) const
    {
        const bool isInner = y > 0 && y + reachDown < picture.height;
        const std::ptrdiff_t begin = isInner ? std::min(1 + reachAside, picture.width) : picture.width;
        const std::ptrdiff_t end = std::max(begin, picture.width - reachAside);
        std::ptrdiff_t carried = ditherColumns<true>(picture, y, 0, begin, 0);
        carried = ditherColumns<false>(picture, y, begin, end, carried);
        ditherColumns<true>(picture, y, end, picture.width, carried);
    }

    // At an edge some of the pixels that would be given a share are none. Returns what the
    // next column is given.
    template <bool isAtEdge>
    std::ptrdiff_t ditherColumns(const Picture& picture, std::ptrdiff_t y, std::ptrdiff_t begin, std::ptrdiff_t end,
                                 std::ptrdiff_t carried) const
    {
        const Entry* const entries = m_entries - lowestSum;
        const std::int8_t* const toTheRight = m_toTheRight - lowestSum;
        for (std::ptrdiff_t x = begin; x < end; ++x) {
            unsigned char& pixel = picture.pixels[y * picture.width + x];
            const std::ptrdiff_t sum = pixel + carried;
            const Entry& entry = entries[sum];
            pixel = entry.level;
            giveOthers<isAtEdge>(picture, x, y, entry, Others());
            carried = isAtEdge && y == 0 ? 0 : toTheRight[sum];
        }
        return carried;
    }

    template <bool isAtEdge, std::size_t... indices>
    static void giveOthers(const Picture& picture, std::ptrdiff_t x, std::ptrdiff_t y, const Entry& entry,
                           std::index_sequence<indices...>)
    {
        (give<isAtEdge>(picture, x + shares[indices + 1].dx, y + shares[indices + 1].dy,
                        entry.given[shares[indices + 1].part]),
         ...);
    }

    template <bool isAtEdge> static void give(const Picture& picture, std::ptrdiff_t x, std::ptrdiff_t y, int share)
    {
        // Row 0 and column 0 never receive diffused error.
        if (isAtEdge && (x <= 0 || y <= 0 || x >= picture.width || y >= picture.height))
            return;
        unsigned char& pixel = picture.pixels[y * picture.width + x];
        pixel = levelOf(pixel + share);
    }

    Entry m_entries[highestSum - lowestSum + 1];
    // By itself, as what the next pixel waits for is found sooner where it is all there is.
    std::int8_t m_toTheRight[highestSum - lowestSum + 1];
};

} // namespace Vantor
