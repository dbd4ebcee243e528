#pragma once

#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>

namespace Vantor {

// What printf would print.
__attribute__((format(printf, 1, 2))) std::string formatText(const char* format, ...);
__attribute__((format(printf, 1, 0))) std::string formatPrintf(const char* format, va_list arguments);

// "2.5 s"
std::string formatSeconds(std::chrono::nanoseconds time);

// "1 packet", "2 packets"
std::string formatNumber(std::uint64_t number, const std::string& noun);

// "0a"
std::string formatHex(unsigned int value, int digits);

// "0a1b2c"
std::string formatHexBytes(const std::uint8_t* bytes, std::size_t size);

// A time for JSON: seconds, to the microsecond.
double toSeconds(std::chrono::nanoseconds time);

// What errno means: "No such file or directory"
std::string describeError(int error);

std::string toLower(std::string text);

// What a user wrote, in a message: within quotes, the first 80 characters and then "..." for
// the rest, a '?' for each byte of what no terminal should get or is not UTF-8.
std::string quote(const std::string& text);

// The same without quotes, of another length where that is wanted.
std::string makePrintable(const std::string& text, int longest = 80);

} // namespace Vantor
