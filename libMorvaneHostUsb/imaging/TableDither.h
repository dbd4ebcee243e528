#pragma once

#include "libMorvaneHostUsb/imaging/Diffusion.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace Vantor {

// Error diffusion with a table, for any processor. What follows from a pixel is looked up
// by the sum of its level and of what its left neighbour gives, as that sum is: below 0,
// above 255. So a pixel waits for one addition and one load after the one before. The
// pixels that others still give to are held in registers meanwhile.
template <typename Diffusion> class TableDither {
public:
    explicit TableDither(int threshold)
    {
        for (std::ptrdiff_t level = 0; level < levels; ++level)
            enter(level, threshold);
        // A sum below 0 counts as 0, and above 255 it wraps.
        Entry* const ofZero = m_entries - lowestSum;
        std::fill(m_entries, ofZero, *ofZero);
        std::copy(ofZero, ofZero + highestSum - 255, ofZero + levels);
        for (std::size_t i = 0; i < sums; ++i)
            m_toTheRight[i] = m_entries[i].given[shares[0].part];
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
    static constexpr std::ptrdiff_t levels = 256;

    // What a pixel gives its right neighbour lies between.
    static_assert(parts[shares[0].part].of(255) <= 127);
    static constexpr std::ptrdiff_t lowestSum = -128;
    static constexpr std::ptrdiff_t highestSum = 383;
    static constexpr std::size_t sums = highestSum - lowestSum + 1;

    static constexpr std::ptrdiff_t reachDown = shares.back().dy; // the last is the lowest
    static constexpr std::ptrdiff_t reachAside = Vantor::reachAside(shares);

    static constexpr std::ptrdiff_t rowCount = reachDown + 1;
    static constexpr std::ptrdiff_t othersCount = shares.size() - 1; // but for the right neighbour's share

    struct Picture {
        unsigned char* pixels;
        std::ptrdiff_t width;
        std::ptrdiff_t height;

        unsigned char* row(std::ptrdiff_t y) const { return pixels + y * width; }
    };

    // Eight bytes, or two, so that an index need not be multiplied.
    struct alignas(parts.size() > 1 ? 8 : 2) Entry {
        std::int8_t given[parts.size()];
        std::uint8_t level;
    };

    // The columns that the shares of a pixel fall on, its own row's from itself on.
    template <std::ptrdiff_t dy> struct Span {
        static constexpr std::ptrdiff_t first = dy == 0 ? 0 : firstColumn(shares, dy);
        static constexpr std::ptrdiff_t last = lastColumn(shares, dy);
        static constexpr std::ptrdiff_t steps = last - first;
    };

    // Calls `work` with every number below `count`, each a constant.
    template <std::ptrdiff_t count, typename Work> static void forEach(const Work& work)
    {
        forEachOf(work, std::make_integer_sequence<std::ptrdiff_t, count>());
    }
    template <typename Work, std::ptrdiff_t... numbers>
    static void forEachOf(const Work& work, std::integer_sequence<std::ptrdiff_t, numbers...> /*all*/)
    {
        (work(std::integral_constant<std::ptrdiff_t, numbers>()), ...);
    }

    // Not clamped at the top: sums above 255 wrap.
    static unsigned char levelOf(std::ptrdiff_t sum) { return static_cast<unsigned char>(sum < 0 ? 0 : sum); }

    void enter(std::ptrdiff_t level, int threshold)
    {
        Entry& entry = m_entries[level - lowestSum];
        entry.level = level < threshold ? 0 : 255;
        const int error = static_cast<int>(level) - entry.level;
        for (std::size_t i = 0; i < parts.size(); ++i)
            entry.given[i] = static_cast<std::int8_t>(error < 0 ? -parts[i].of(-error) : parts[i].of(error));
    }

    void ditherRow(const Picture& picture, std::ptrdiff_t y) const
    {
        const bool isInner = y > 0 && y + reachDown < picture.height;
        const std::ptrdiff_t begin = isInner ? std::min(1 + reachAside, picture.width) : picture.width;
        const std::ptrdiff_t end = std::max(begin, picture.width - reachAside);
        std::ptrdiff_t carried = ditherEdge(picture, y, 0, begin, 0);
        carried = ditherInside(picture, y, begin, end, carried);
        ditherEdge(picture, y, end, picture.width, carried);
    }

    // Where some of the pixels that would be given a share are none. Returns what the next
    // column is given, as ditherInside does.
    std::ptrdiff_t ditherEdge(const Picture& picture, std::ptrdiff_t y, std::ptrdiff_t begin, std::ptrdiff_t end,
                              std::ptrdiff_t carried) const
    {
        for (std::ptrdiff_t x = begin; x < end; ++x) {
            unsigned char& pixel = picture.row(y)[x];
            const Entry& entry = m_entries[pixel + carried - lowestSum];
            pixel = entry.level;
            forEach<othersCount>([&](auto i) {
                constexpr const DiffusionShare& share = shares[i + 1];
                give(picture, x + share.dx, y + share.dy, entry.given[share.part]);
            });
            carried = y == 0 ? 0 : entry.given[shares[0].part];
        }
        return carried;
    }

    static void give(const Picture& picture, std::ptrdiff_t x, std::ptrdiff_t y, int share)
    {
        // Row 0 and column 0 never receive diffused error.
        if (x <= 0 || y <= 0 || x >= picture.width || y >= picture.height)
            return;
        unsigned char& pixel = picture.row(y)[x];
        pixel = levelOf(pixel + share);
    }

    // A pixel is loaded when the first share falls on it, held while it is given more, and
    // stored behind the last. Of what is held the low eight bits count.
    std::ptrdiff_t ditherInside(const Picture& picture, std::ptrdiff_t y, std::ptrdiff_t begin, std::ptrdiff_t end,
                                std::ptrdiff_t carried) const
    {
        if (begin >= end)
            return carried;
        const Entry* const entries = m_entries - lowestSum;
        const std::int8_t* const toTheRight = m_toTheRight - lowestSum;
        unsigned char* pixel = picture.row(y) + begin;
        // The width by value: what is written might be any of what is only referred to.
        const auto row = [&pixel, width = picture.width](std::ptrdiff_t dy) { return pixel + dy * width; };

        int held[rowCount][2 * reachAside + 1];
        forEach<rowCount>(
            [&](auto dy) { forEach<Span<dy>::steps>([&](auto i) { held[dy][i] = row(dy)[Span<dy>::first + i]; }); });
        for (unsigned char* const last = pixel + (end - begin); pixel != last; ++pixel) {
            forEach<rowCount>([&](auto dy) { held[dy][Span<dy>::steps] = row(dy)[Span<dy>::last]; });
            const std::ptrdiff_t sum = static_cast<unsigned char>(held[0][0]) + carried;
            const Entry& entry = entries[sum];
            held[0][0] = entry.level;
            forEach<othersCount>([&](auto i) {
                constexpr const DiffusionShare& share = shares[i + 1];
                int& level = held[share.dy][share.dx - Span<share.dy>::first];
                level = std::max(0, static_cast<unsigned char>(level) + entry.given[share.part]);
            });
            carried = toTheRight[sum];
            forEach<rowCount>([&](auto dy) {
                row(dy)[Span<dy>::first] = static_cast<unsigned char>(held[dy][0]);
                forEach<Span<dy>::steps>([&](auto i) { held[dy][i] = held[dy][i + 1]; });
            });
        }
        forEach<rowCount>([&](auto dy) {
            forEach<Span<dy>::steps>(
                [&](auto i) { row(dy)[Span<dy>::first + i] = static_cast<unsigned char>(held[dy][i]); });
        });
        return carried;
    }

    Entry m_entries[sums];
    // By itself, as what the next pixel waits for is found sooner where it is all there is.
    std::int8_t m_toTheRight[sums];
};

} // namespace Vantor
