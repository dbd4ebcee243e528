#pragma once

#include "tests/support/Bytes.h"

#include <cstddef>
#include <cstdlib>
#include <vector>

namespace Vantor {

// Error diffusion word for word, without a care for speed: what LcdHelper is
// measured against. Shares no code with it.
class LiteralDither {
public:
    // `type`: 1 Atkinson, 2 Floyd-Steinberg, 3 Stucki, anything else no diffusion.
    static Bytes dither(const Bytes& grey, int width, int height, int type, int threshold)
    {
        LiteralDither dither(grey, width, height);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x)
                dither.visit(x, y, type, threshold);
        }
        return Bytes(dither.m_levels.begin(), dither.m_levels.end());
    }

private:
    LiteralDither(const Bytes& grey, int width, int height)
        : m_levels(grey.begin(), grey.end()), m_width(width), m_height(height)
    {}

    int& at(int x, int y) { return m_levels.at(static_cast<std::size_t>(y * m_width + x)); }

    void visit(int x, int y, int type, int threshold)
    {
        const int old = at(x, y);
        at(x, y) = old < threshold ? 0 : 255;
        const int error = old - at(x, y);
        if (type == 1)
            atkinson(x, y, error);
        else if (type == 2)
            floydSteinberg(x, y, error);
        else if (type == 3)
            stucki(x, y, error);
    }

    void atkinson(int x, int y, int error)
    {
        give(x + 1, y, part(error, 1, 8));
        give(x + 2, y, part(error, 1, 8));
        give(x - 1, y + 1, part(error, 1, 8));
        give(x, y + 1, part(error, 1, 8));
        give(x + 1, y + 1, part(error, 1, 8));
        give(x, y + 2, part(error, 1, 8));
    }

    void floydSteinberg(int x, int y, int error)
    {
        give(x + 1, y, part(error, 7, 16));
        give(x - 1, y + 1, part(error, 3, 16));
        give(x, y + 1, part(error, 5, 16));
        give(x + 1, y + 1, part(error, 1, 16));
    }

    void stucki(int x, int y, int error)
    {
        give(x + 1, y, part(error, 1, 6));
        give(x + 2, y, part(error, 5, 42));
        give(x - 2, y + 1, part(error, 1, 21));
        give(x - 1, y + 1, part(error, 4, 42));
        give(x, y + 1, part(error, 8, 42));
        give(x + 1, y + 1, part(error, 4, 42));
        give(x + 2, y + 1, part(error, 1, 21));
        give(x - 2, y + 2, part(error, 1, 42));
        give(x - 1, y + 2, part(error, 1, 21));
        give(x, y + 2, part(error, 4, 42));
        give(x + 1, y + 2, part(error, 1, 21));
        give(x + 2, y + 2, part(error, 1, 42));
    }

    // Truncates towards zero.
    static int part(int error, int numerator, int denominator)
    {
        const int magnitude = std::abs(error) * numerator / denominator;
        return error < 0 ? -magnitude : magnitude;
    }

    // Row 0 and column 0 take nothing; below 0 is 0; above 255 wraps.
    void give(int x, int y, int delta)
    {
        const bool isTaking = x > 0 && y > 0 && x < m_width && y < m_height;
        if (!isTaking)
            return;
        const int sum = at(x, y) + delta;
        at(x, y) = sum < 0 ? 0 : sum % 256;
    }

    std::vector<int> m_levels;
    int m_width;
    int m_height;
};

} // namespace Vantor
