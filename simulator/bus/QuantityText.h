#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Vantor {

// Digits alone.
std::optional<std::uint64_t> parseNumber(std::string_view text, std::uint64_t max);

struct ParsedTime {
    std::optional<std::chrono::nanoseconds> time;
    std::string error; // without a time: what is allowed in its place
};

// 250ms, 2s, 1.5s, or a plain number of the unit. Up to nine places, at most 1,000,000 s.
enum class PlainTime { Seconds, Milliseconds };
ParsedTime parseTime(std::string_view text, PlainTime plain = PlainTime::Seconds);

// As parseTime takes plain milliseconds: "250", "0.5".
std::string formatMilliseconds(std::chrono::nanoseconds time);

// "2s", "0.25s"
std::string formatSeconds(std::chrono::nanoseconds time);

// "1 byte", "2 bytes"
std::string formatBytes(std::size_t number);

// Two digits.
std::string formatHex(std::uint8_t byte);

} // namespace Vantor
