#pragma once

#include <string>
#include <string_view>

namespace Vantor {

// Words of a user in what is said of them.
namespace UserText {

// At most so many characters are shown.
constexpr std::size_t longest = 80;

// The text with '?' for control characters, and "..." for what is beyond the longest.
std::string shown(std::string_view text);

// What is said of a word that is another one than those allowed; empty where the line ends.
std::string expected(const std::string& allowed, std::string_view word);

} // namespace UserText

} // namespace Vantor
