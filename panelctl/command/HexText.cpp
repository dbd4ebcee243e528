#include "panelctl/command/HexText.h"

#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Wording.h"

#include <algorithm>

namespace Vantor::HexText {

namespace {

constexpr const char* digits = "0123456789abcdef";

// -1 for anything but a hexadecimal digit.
int valueOf(char character)
{
    const std::size_t value = std::string(digits).find(toLower({character}));
    return value == std::string::npos ? -1 : static_cast<int>(value);
}

std::string describe(char character)
{
    if (character > ' ' && character <= '~')
        return std::string("'") + character + "'";
    return "byte 0x" + formatHex(static_cast<unsigned char>(character), 2);
}

constexpr const char* separators = " :";

// Where the digits begin of the group at `start`: behind 0x, if a digit follows.
std::size_t skipPrefix(const std::string& text, std::size_t start)
{
    const bool isPrefixed = text.compare(start, 2, "0x") == 0 || text.compare(start, 2, "0X") == 0;
    return isPrefixed && start + 2 < text.size() && valueOf(text[start + 2]) >= 0 ? start + 2 : start;
}

void parseGroup(std::vector<std::uint8_t>& bytes, const std::string& text, std::size_t start, std::size_t end)
{
    const std::size_t first = skipPrefix(text, start);
    for (std::size_t i = first; i < end; ++i)
        if (valueOf(text[i]) < 0)
            throw Failure(ExitCode::Usage, "--hex: " + describe(text[i]) + " at position " + std::to_string(i + 1) +
                                               " is not a hexadecimal digit.\n"
                                               "Give two digits a byte: 'de ad 00 01', de:ad:00:01 or 0xdead0001.");
    if ((end - first) % 2 != 0)
        throw Failure(ExitCode::Usage, "--hex: " + quote(text.substr(start, end - start)) + " at position " +
                                           std::to_string(start + 1) +
                                           " has an odd number of digits: one byte is only half there.\n"
                                           "Give two digits a byte, as in 0a rather than a.");
    for (std::size_t i = first; i < end; i += 2)
        bytes.push_back(static_cast<std::uint8_t>(valueOf(text[i]) * 16 + valueOf(text[i + 1])));
}

} // namespace

std::vector<std::uint8_t> parse(const std::string& text)
{
    std::vector<std::uint8_t> bytes;
    for (std::size_t end = 0;;) {
        const std::size_t start = text.find_first_not_of(separators, end);
        if (start == std::string::npos)
            return bytes;
        end = std::min(text.find_first_of(separators, start), text.size());
        parseGroup(bytes, text, start, end);
    }
}

std::string format(const std::vector<std::uint8_t>& bytes, std::size_t limit)
{
    const std::size_t shown = std::min(bytes.size(), limit);
    std::string text;
    text.reserve(3 * shown);
    for (std::size_t i = 0; i < shown; ++i) {
        if (i != 0)
            text += ' ';
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    if (shown < bytes.size())
        text += (shown != 0 ? " " : "") + ("(+" + std::to_string(bytes.size() - shown) + ")");
    return text;
}

} // namespace Vantor::HexText
