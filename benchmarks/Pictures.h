#pragma once

#include <cstddef>
#include <random>
#include <vector>

namespace Vantor {

// What the contenders work on: the same pictures each time.
namespace Pictures {

// Brighter to the lower right, with some noise.
inline std::vector<unsigned char> grey(int width, int height)
{
    std::vector<unsigned char> grey;
    std::minstd_rand random(1); // NOLINT(bugprone-random-generator-seed,cert-msc51-cpp): the same picture each time
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            grey.push_back(
                static_cast<unsigned char>((x * 240 / width + y * 240 / height) / 2 + static_cast<int>(random() % 16)));
    }
    return grey;
}

// 0x00RRGGBB. Two colours, in runs of 9 and 28 pixels, and now and then a whole row.
inline std::vector<unsigned int> drawing(int width, int height)
{
    std::vector<unsigned int> pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    int i = 0;
    for (unsigned int& pixel : pixels) {
        pixel = (i % 37 < 9 || i / width % 11 == 0) ? 0x102030 : 0xF0F0F0;
        ++i;
    }
    return pixels;
}

} // namespace Pictures

} // namespace Vantor
