#pragma once

#include <array>
#include <cstddef>

namespace Vantor {

// A part of a pixel's error: error × numerator / denominator, cut towards zero. Without a
// division, for errors of up to 255 either way: (error × factor + offset) >> shift.
struct DiffusionPart {
    int numerator;
    int denominator;
    int factor;
    int offset;
    int shift;

    constexpr int of(int error) const { return (error * factor + offset) >> shift; }

    // In 16 bits.
    constexpr bool isExact() const
    {
        for (int error = 0; error <= 255; ++error) {
            if (of(error) != error * numerator / denominator)
                return false;
        }
        return 255 * factor + offset <= 65535;
    }
};

// Which part goes to the pixel at (dx, dy).
struct DiffusionShare {
    int dx;
    int dy;
    std::size_t part;
};

template <std::size_t count> constexpr bool areExact(const std::array<DiffusionPart, count>& parts)
{
    for (const DiffusionPart& part : parts) {
        if (!part.isExact())
            return false;
    }
    return true;
}

// The shares go down the rows, in each from left to right, the right neighbour's first.
// Backwards it is the order in which a pixel receives them.
template <std::size_t count> constexpr bool areInOrder(const std::array<DiffusionShare, count>& shares)
{
    for (std::size_t i = 1; i < count; ++i) {
        const DiffusionShare& one = shares[i - 1];
        const DiffusionShare& next = shares[i];
        if (one.dy > next.dy || (one.dy == next.dy && one.dx >= next.dx))
            return false;
    }
    return shares[0].dx == 1 && shares[0].dy == 0;
}

template <std::size_t count> constexpr int reachAside(const std::array<DiffusionShare, count>& shares)
{
    int reach = 0;
    for (const DiffusionShare& share : shares) {
        const int aside = share.dx < 0 ? -share.dx : share.dx;
        reach = aside > reach ? aside : reach;
    }
    return reach;
}

// The first and the last column of the shares that a row gets.
template <std::size_t count> constexpr int firstColumn(const std::array<DiffusionShare, count>& shares, int dy)
{
    std::size_t i = 0;
    while (shares[i].dy != dy)
        ++i;
    return shares[i].dx;
}

template <std::size_t count> constexpr int lastColumn(const std::array<DiffusionShare, count>& shares, int dy)
{
    std::size_t i = count - 1;
    while (shares[i].dy != dy)
        --i;
    return shares[i].dx;
}

struct FloydSteinbergDiffusion {
    static constexpr std::array<DiffusionPart, 4> parts = {
        {{7, 16, 7, 0, 4}, {3, 16, 3, 0, 4}, {5, 16, 5, 0, 4}, {1, 16, 1, 0, 4}}};
    static_assert(areExact(parts));

    static constexpr std::array<DiffusionShare, 4> shares = {{
        {1, 0, 0},
        {-1, 1, 1},
        {0, 1, 2},
        {1, 1, 3},
    }};
    static_assert(areInOrder(shares));
};

struct AtkinsonDiffusion {
    static constexpr std::array<DiffusionPart, 1> parts = {{{1, 8, 1, 0, 3}}};
    static_assert(areExact(parts));

    static constexpr std::array<DiffusionShare, 6> shares = {{
        {1, 0, 0},
        {2, 0, 0},
        {-1, 1, 0},
        {0, 1, 0},
        {1, 1, 0},
        {0, 2, 0},
    }};
    static_assert(areInOrder(shares));
};

// The first row has 1/6 and 5/42 where textbooks have 8/42 and 4/42.
struct StuckiDiffusion {
    static constexpr std::array<DiffusionPart, 6> parts = {{{1, 6, 171, 0, 10},
                                                            {5, 42, 61, 0, 9},
                                                            {8, 42, 195, 12, 10},
                                                            {4, 42, 195, 12, 11},
                                                            {1, 21, 195, 12, 12},
                                                            {1, 42, 195, 12, 13}}};
    static_assert(areExact(parts));

    static constexpr std::array<DiffusionShare, 12> shares = {{
        {1, 0, 0},
        {2, 0, 1},
        {-2, 1, 4},
        {-1, 1, 3},
        {0, 1, 2},
        {1, 1, 3},
        {2, 1, 4},
        {-2, 2, 5},
        {-1, 2, 4},
        {0, 2, 3},
        {1, 2, 4},
        {2, 2, 5},
    }};
    static_assert(areInOrder(shares));
};

} // namespace Vantor
