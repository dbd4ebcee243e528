#include "simulator/web/ScreenPatch.h"

#include "simulator/panel/PixelBits.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <string_view>
#include <utility>

namespace Vantor {

namespace {

using Pixels = std::vector<std::uint32_t>;
using Bytes = std::vector<std::uint8_t>;

// What is below runs for each pixel that is told, up to 25 times a second for each LCD.

std::string toBase64(const Bytes& bytes)
{
    static constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text((bytes.size() + 2) / 3 * 4, '=');
    char* next = text.data();
    const std::size_t whole = bytes.size() / 3 * 3;
    for (std::size_t i = 0; i < whole; i += 3) {
        const std::uint32_t group = std::uint32_t{bytes[i]} << 16 | std::uint32_t{bytes[i + 1]} << 8 | bytes[i + 2];
        *next++ = digits[group >> 18];
        *next++ = digits[group >> 12 & 63];
        *next++ = digits[group >> 6 & 63];
        *next++ = digits[group & 63];
    }
    if (whole == bytes.size())
        return text;
    const bool isPair = bytes.size() - whole == 2;
    const std::uint32_t group = std::uint32_t{bytes[whole]} << 8 | (isPair ? bytes[whole + 1] : 0U);
    *next++ = digits[group >> 10];
    *next++ = digits[group >> 4 & 63];
    if (isPair)
        *next = digits[group << 2 & 63];
    return text;
}

// In the order in which they are met; of more than two, three.
Pixels findColours(const Pixels& pixels)
{
    Pixels colours;
    for (auto at = pixels.begin(); at != pixels.end() && colours.size() < 3;) {
        colours.push_back(*at);
        at = std::find_if(at, pixels.end(), [first = colours.front(), last = colours.back()](std::uint32_t pixel) {
            return pixel != first && pixel != last;
        });
    }
    return colours;
}

// A bit a pixel, 0 for one of that colour.
Bytes packBits(const Pixels& pixels, std::uint32_t colour)
{
    Bytes bytes((pixels.size() + 7) / 8);
    const std::size_t whole = pixels.size() / 8 * 8;
    const std::uint32_t* next = pixels.data();
    for (std::size_t i = 0; i < whole; i += 8) {
        const auto bit = [next, colour](std::size_t pixel) { return unsigned{next[pixel] != colour} << (7 - pixel); };
        bytes[i / 8] = static_cast<std::uint8_t>(bit(0) | bit(1) | bit(2) | bit(3) | bit(4) | bit(5) | bit(6) | bit(7));
        next += 8;
    }
    for (std::size_t i = whole; i < pixels.size(); ++i)
        if (pixels[i] != colour)
            bytes.back() = static_cast<std::uint8_t>(bytes.back() | 0x80U >> i % 8);
    return bytes;
}

Bytes packSamples(const Pixels& pixels)
{
    Bytes bytes;
    bytes.reserve(pixels.size() * 3);
    for (const std::uint32_t pixel : pixels)
        for (const unsigned int shift : {16U, 8U, 0U})
            bytes.push_back(static_cast<std::uint8_t>(pixel >> shift));
    return bytes;
}

Pixels unpackSamples(const Bytes& bytes)
{
    Pixels pixels;
    pixels.reserve(bytes.size() / 3);
    for (std::size_t i = 0; i + 2 < bytes.size(); i += 3)
        pixels.push_back(std::uint32_t{bytes[i]} << 16 | std::uint32_t{bytes[i + 1]} << 8 | bytes[i + 2]);
    return pixels;
}

} // namespace

ScreenPatch ScreenPatch::make(const PanelBoard::Area& area, const std::vector<std::uint32_t>& pixels)
{
    Pixels colours = findColours(pixels);
    if (colours.size() > 2)
        return {area, {}, packSamples(pixels)};
    Bytes bits = colours.empty() ? Bytes{} : packBits(pixels, colours.front());
    return {area, std::move(colours), std::move(bits)};
}

void ScreenPatch::draw(std::vector<std::uint32_t>& picture, unsigned int width) const
{
    const Pixels pixels =
        colours.empty() ? unpackSamples(bytes) : PixelBits::unpack(bytes, colours.front(), colours.back());
    for (std::size_t row = 0; row < area.rows; ++row)
        std::copy_n(pixels.data() + row * area.columns, area.columns, picture.data() + (area.y + row) * width + area.x);
}

std::string ScreenPatch::asJson() const
{
    std::string text = "\"x\":" + std::to_string(area.x) + ",\"y\":" + std::to_string(area.y) +
                       ",\"columns\":" + std::to_string(area.columns) + ",\"rows\":" + std::to_string(area.rows);
    if (colours.empty())
        return text + ",\"rgb\":\"" + toBase64(bytes) + "\"";
    text += ",\"colours\":[";
    for (const std::uint32_t colour : colours) {
        std::array<char, 12> name{};
        std::snprintf(name.data(), name.size(), "\"#%06x\"", static_cast<unsigned int>(colour & 0xFFFFFF));
        text += (text.back() == '[' ? "" : ",") + std::string(name.data());
    }
    return text + "],\"bits\":\"" + toBase64(bytes) + "\"";
}

} // namespace Vantor
