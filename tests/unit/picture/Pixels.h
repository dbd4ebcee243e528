#pragma once

#include <cstdint>
#include <vector>

namespace Vantor {

using Pixels = std::vector<std::uint32_t>;

constexpr std::uint32_t b = 0x000000;
constexpr std::uint32_t w = 0xFFFFFF;

} // namespace Vantor
