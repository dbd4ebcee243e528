#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// Included only by sources that are compiled for a processor with such lanes. All of it
// is internal to each: the linker must not give another source the code made for this one.
namespace Vantor {
namespace {

// Sixteen bytes side by side.
using ByteLanes = std::uint8_t __attribute__((vector_size(16)));
using WordLanes = std::uint16_t __attribute__((vector_size(16)));

inline constexpr std::ptrdiff_t laneCount = 16;

inline ByteLanes allLanes(unsigned int value)
{
    return ByteLanes{} + static_cast<std::uint8_t>(value);
}

inline ByteLanes loadLanes(const unsigned char* bytes)
{
    ByteLanes lanes;
    std::memcpy(&lanes, bytes, sizeof lanes);
    return lanes;
}

inline void storeLanes(unsigned char* bytes, ByteLanes lanes)
{
    std::memcpy(bytes, &lanes, sizeof lanes);
}

// 255 where it is so, else 0.
inline ByteLanes areAtLeast(ByteLanes lanes, ByteLanes least)
{
    return ByteLanes(lanes >= least);
}

inline ByteLanes larger(ByteLanes one, ByteLanes other)
{
    return one > other ? one : other;
}

// From `chosen` where the mask is 255, else from `other`.
inline ByteLanes choose(ByteLanes mask, ByteLanes chosen, ByteLanes other)
{
    return (mask & chosen) | (~mask & other);
}

// The first `number` lanes, 0 to 16.
inline ByteLanes firstLanes(std::ptrdiff_t number)
{
    static constexpr unsigned char edge[2 * laneCount] = {255, 255, 255, 255, 255, 255, 255, 255,
                                                          255, 255, 255, 255, 255, 255, 255, 255};
    return loadLanes(edge + laneCount - number);
}

using LaneSquare = ByteLanes[laneCount];

// Deals the rows out in pairs, one of each half.
inline void shuffle(const LaneSquare& from, LaneSquare& to)
{
    for (std::ptrdiff_t i = 0; i < laneCount / 2; ++i) {
        to[2 * i] = __builtin_shufflevector(from[i], from[i + laneCount / 2], 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21,
                                            6, 22, 7, 23);
        to[2 * i + 1] = __builtin_shufflevector(from[i], from[i + laneCount / 2], 8, 24, 9, 25, 10, 26, 11, 27, 12, 28,
                                                13, 29, 14, 30, 15, 31);
    }
}

// Rows become columns.
inline void transpose(LaneSquare& rows)
{
    LaneSquare other;
    shuffle(rows, other);
    shuffle(other, rows);
    shuffle(rows, other);
    shuffle(other, rows);
}

} // namespace
} // namespace Vantor
