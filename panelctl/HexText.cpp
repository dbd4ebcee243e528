#include "panelctl/HexText.h"

#include "panelctl/Failure.h"

#include <algorithm>

namespace Vantor::HexText {

namespace {

constexpr const char* digits = "0123456789abcdef";

// -1 for anything but a hexadecimal digit.
int valueOf(char character)
{
    if (character >= '0' && character <= '9')
        return character - '0';
    if (character >= 'a' && character <= 'f')
        return character - 'a' + 10;
    if (character >= 'A' && character <= 'F')
        return character - 'A' + 10;
    return -1;
}

std::string describe(char character)
{
    if (character > ' ' && character <= '~')
        return std::string("'") + character + "'";
    const auto byte = static_cast<unsigned char>(character);
    return std::string("byte 0x") + digits[byte >> 4] + digits[byte & 15];
}

} // namespace

std::vector<std::uint8_t> parse(const std::string& text)
{
    std::vector<std::uint8_t> bytes;
    int high = -1;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == ' ')
            continue;
        const int value = valueOf(text[i]);
        if (value < 0)
            throw Failure(ExitCode::Usage, "--hex: " + describe(text[i]) + " at position " + std::to_string(i + 1) +
                                               " is not a hexadecimal digit.\n"
                                               "Give two digits a byte, without a prefix: --hex 'de ad 00 01'.");
        if (high < 0) {
            high = value;
        } else {
            bytes.push_back(static_cast<std::uint8_t>(high * 16 + value));
            high = -1;
        }
    }
    if (high >= 0)
        throw Failure(ExitCode::Usage, "--hex: " + std::to_string(2 * bytes.size() + 1) +
                                           " digits, an odd number: the last byte is half there.\n"
                                           "Give two digits a byte, as in 0a rather than a.");
    return bytes;
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
