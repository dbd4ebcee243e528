#pragma once

#include "panelctl/picture/GreyPicture.h"

#include <cstdint>
#include <string>

namespace Vantor {

// Reads PNG files of every colour type, depth and interlacing. 16 bits are rounded
// to 8, what is transparent lies on white; gamma and colour profiles are ignored,
// so that samples are taken as they are.
class PngReader {
public:
    static constexpr std::uint32_t maxSide = 16384;
    static constexpr std::uint64_t maxPixels = 1 << 24;

    // Throws Failure (usage) that names the file and what is wrong with it.
    static GreyPicture read(const std::string& path);
};

} // namespace Vantor
