#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace Vantor {

// "2.5 s"
std::string formatSeconds(std::chrono::nanoseconds time);

// "1 packet", "2 packets"
std::string formatNumber(std::uint64_t number, const std::string& noun);

// "0a"
std::string formatHex(unsigned int value, int digits);

// What errno means: "No such file or directory"
std::string describeError(int error);

std::string toLower(std::string text);

// What a user wrote, in a message: within quotes, the first 80 characters and then "..." for
// the rest, a '?' for each byte of what no terminal should get or is not UTF-8.
std::string quote(const std::string& text);

// The same without quotes.
std::string makePrintable(const std::string& text);

} // namespace Vantor
