#include "simulator/bus/UserText.h"

namespace Vantor {

namespace {

bool isContinuation(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; // of a UTF-8 character
}

// Below a blank, DEL, and U+0080 to U+009F, which terminals obey, too.
bool isControl(std::string_view character)
{
    const auto first = static_cast<unsigned char>(character.front());
    const auto isC1 = [](char byte) { return static_cast<unsigned char>(byte) < 0xA0U && isContinuation(byte); };
    if (first < 0x20U || first == 0x7FU || isC1(character.front()))
        return true;
    return first == 0xC2U && character.size() > 1 && isC1(character[1]);
}

// The first UTF-8 character; bytes that make none are characters of their own.
std::string_view firstCharacter(std::string_view text)
{
    std::size_t size = 1;
    if (!isContinuation(text.front()) && (static_cast<unsigned char>(text.front()) & 0x80U) != 0)
        while (size < 4 && size < text.size() && isContinuation(text[size]))
            ++size;
    return text.substr(0, size);
}

} // namespace

std::string UserText::shown(std::string_view text)
{
    std::string result;
    for (std::size_t count = 0; !text.empty(); ++count) {
        if (count == longest)
            return result + "...";
        const std::string_view character = firstCharacter(text);
        if (isControl(character))
            result += '?';
        else
            result += character;
        text.remove_prefix(character.size());
    }
    return result;
}

std::string UserText::expected(const std::string& allowed, std::string_view word)
{
    return "expected " + allowed + ", found " + (word.empty() ? "the end" : '"' + shown(word) + '"');
}

} // namespace Vantor
