#pragma once

#include "tests/support/Bytes.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace Vantor {

// A picture to be written as a PNG file of any kind.
struct PngSample {
    // As PNG numbers them.
    enum ColourType {
        Grey = 0,
        Rgb = 2,
        Palette = 3,
        GreyAlpha = 4,
        Rgba = 6,
    };

    unsigned int width;
    unsigned int height;
    ColourType type;
    int depth;  // bits a sample
    Bytes rows; // as in the file: packed, high byte first, rows padded to bytes
    std::vector<std::array<std::uint8_t, 3>> palette = {};
    Bytes paletteAlpha = {};
    bool interlaced = false;
    bool hasTransparentGrey = false; // for Grey: samples of 0 are transparent
    double gamma = 0;                // 0: none is stated

    // The file's bytes.
    std::string encode() const;
};

// A grey picture of 8 bits from one byte a pixel.
std::string encodeGrey(unsigned int width, unsigned int height, const Bytes& pixels);

// A PNG file of grey pixels, as panelsim writes it.
struct GreyFile {
    unsigned int width = 0;
    unsigned int height = 0;
    Bytes pixels;

    // Fails the test when it can't be read.
    static GreyFile read(const std::string& path);
};

} // namespace Vantor
