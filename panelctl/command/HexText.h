#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Vantor::HexText {

// The bytes that pairs of hexadecimal digits stand for, in groups of whole bytes that
// blanks or colons separate; a group may begin with 0x. Throws Failure (usage) that points
// at what is wrong.
std::vector<std::uint8_t> parse(const std::string& text);

// "0a 1b 2c", at most `limit` bytes of it and then the number left out.
std::string format(const std::vector<std::uint8_t>& bytes, std::size_t limit);

} // namespace Vantor::HexText
