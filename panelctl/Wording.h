#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace Vantor {

// "2.5 s"
std::string formatSeconds(std::chrono::nanoseconds time);

// "1 packet", "2 packets"
std::string formatNumber(std::uint64_t number, const std::string& noun);

} // namespace Vantor
