#include "panelctl/terminal/Wording.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <system_error>

namespace Vantor {

namespace {

// Bytes of the printable character at `position`; 0 for a control character, also one of
// those above 0x7F, and for what is not UTF-8.
std::size_t measureCharacter(const std::string& text, std::size_t position)
{
    const auto byteAt = [&text](std::size_t index) {
        return index < text.size() ? static_cast<unsigned char>(text[index]) : 0U;
    };
    const unsigned int first = byteAt(position);
    if (first < 0x80)
        return first >= ' ' && first != 0x7F ? 1 : 0;
    const std::size_t size = first >= 0xC2 && first < 0xE0 ? 2 : first >= 0xE0 && first < 0xF0 ? 3 : 4;
    if (first < 0xC2 || first > 0xF4 || (first == 0xC2 && byteAt(position + 1) < 0xA0))
        return 0;
    for (std::size_t i = 1; i < size; ++i)
        if ((byteAt(position + i) & 0xC0) != 0x80)
            return 0;
    return size;
}

} // namespace

std::string formatText(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::string text = formatPrintf(format, arguments);
    va_end(arguments);
    return text;
}

std::string formatPrintf(const char* format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    std::string text(static_cast<std::size_t>(std::max(length, 0)), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

std::string formatSeconds(std::chrono::nanoseconds time)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g s", std::chrono::duration<double>(time).count());
    return text;
}

std::string formatNumber(std::uint64_t number, const std::string& noun)
{
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

std::string formatHex(unsigned int value, int digits)
{
    char text[16];
    std::snprintf(text, sizeof text, "%0*x", digits, value);
    return text;
}

std::string formatHexBytes(const std::uint8_t* bytes, std::size_t size)
{
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    text.reserve(2 * size);
    for (std::size_t i = 0; i < size; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

double toSeconds(std::chrono::nanoseconds time)
{
    const auto whole = std::chrono::round<std::chrono::microseconds>(time);
    return static_cast<double>(whole.count()) / 1e6;
}

std::string describeError(int error)
{
    return std::generic_category().message(error);
}

std::string toLower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    return text;
}

std::string quote(const std::string& text)
{
    return "'" + makePrintable(text) + "'";
}

std::string makePrintable(const std::string& text, int longest)
{
    std::string printable;
    std::size_t position = 0;
    for (int characters = 0; position < text.size() && characters < longest; ++characters) {
        const std::size_t size = measureCharacter(text, position);
        printable += size != 0 ? text.substr(position, size) : "?";
        position += size != 0 ? size : 1;
    }
    return position < text.size() ? printable + "..." : printable;
}

} // namespace Vantor
