#pragma once

#include <cstdint>
#include <vector>

namespace Vantor {

// By which a boot loader judges an image: polynomial 0x04C11DB7, reflected, initial
// value and final XOR 0xFFFFFFFF. 0 for no bytes.
std::uint32_t calculateImageCrc(const std::vector<std::uint8_t>& image);

} // namespace Vantor
