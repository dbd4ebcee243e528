#include "simulator/panel/SliceDecoder.h"

#include "simulator/panel/PanelScreen.h"
#include "simulator/panel/PixelBits.h"
#include "wire/SliceHeader.h"

#include <cstddef>
#include <cstring>
#include <utility>

namespace Vantor {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t wordSize = 4;

std::string number(std::size_t count, const char* thing)
{
    return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

std::string describe(PacketType type, const SliceHeader& header)
{
    return std::string(type == PacketType::EncodedLcdSlice ? "encoded" : "raw") + " slice for LCD " +
           std::to_string(header.lcd) + " at " + std::to_string(header.x) + "," + std::to_string(header.y) + ", " +
           std::to_string(header.width) + "x" + std::to_string(header.rows) + ", " +
           number(header.bitsPerPixel, "bit") + " per pixel: ";
}

bool isDepth(unsigned int bitsPerPixel)
{
    return bitsPerPixel == 1 || bitsPerPixel == 8 || bitsPerPixel == 12 || bitsPerPixel == 16 || bitsPerPixel == 24;
}

std::uint32_t toColour(std::uint32_t red, std::uint32_t green, std::uint32_t blue)
{
    return red << 16 | green << 8 | blue;
}

// The colour of a pixel's code; bits above the code do not count.
std::uint32_t toColour(unsigned int bitsPerPixel, std::uint32_t code)
{
    switch (bitsPerPixel) {
    case 1:
        return code != 0 ? PanelScreen::black : PanelScreen::white;
    case 8:
        return toColour((code >> 5 & 7) * 255 / 7, (code >> 2 & 7) * 255 / 7, (code & 3) * 85);
    case 12:
        return toColour((code >> 8 & 15) * 17, (code >> 4 & 15) * 17, (code & 15) * 17);
    case 16:
        return toColour((code >> 11 & 31) * 255 / 31, (code >> 5 & 63) * 255 / 63, (code & 31) * 255 / 31);
    default:
        return code & 0xFFFFFF;
    }
}

// `count` bits, 8 to 24, from `position` on, which is a multiple of 4.
std::uint32_t readBits(const Bytes& bytes, std::size_t position, unsigned int count)
{
    const std::size_t first = position / 8;
    std::uint32_t window = 0;
    for (std::size_t i = first; i < first + 4; ++i)
        window = window << 8 | (i < bytes.size() ? bytes[i] : 0U);
    return window << position % 8 >> (32 - count);
}

// Empty, or what contradicts what.
std::string readPacked(const SliceHeader& header, const Bytes& data, std::vector<std::uint32_t>& pixels)
{
    const std::size_t bits = std::size_t{header.rows} * header.width * header.bitsPerPixel;
    if (data.size() != bits / 8)
        return number(data.size(), "byte") + " of pixels, its size makes " + std::to_string(bits / 8);
    if (header.bitsPerPixel == 1) {
        pixels = PixelBits::unpack(data, PanelScreen::white, PanelScreen::black);
        return {};
    }
    const std::size_t whole = data.size() * 8 / header.bitsPerPixel;
    pixels.reserve(whole);
    for (std::size_t pixel = 0; pixel < whole; ++pixel) {
        std::uint32_t code = readBits(data, pixel * header.bitsPerPixel, header.bitsPerPixel);
        if (header.bitsPerPixel == 16)
            code = (code & 0xFF) << 8 | code >> 8;
        pixels.push_back(toColour(header.bitsPerPixel, code));
    }
    return {};
}

// Walks the run-length words of a slice; next and isAtMarker want one to be left.
class Words {
public:
    explicit Words(const Bytes& bytes) : m_bytes(bytes) {}

    bool isAtEnd() const { return m_position == m_bytes.size(); }
    std::size_t bytesLeft() const { return m_bytes.size() - m_position; }
    bool isAtMarker() const { return std::memcmp(m_bytes.data() + m_position, "\xFF\xFF\xFF\xFF", wordSize) == 0; }

    struct Run {
        std::size_t count;
        std::uint32_t value;
    };
    Run next()
    {
        const std::uint8_t* const word = m_bytes.data() + m_position;
        m_position += wordSize;
        return {word[0], toColour(word[1], word[2], word[3])};
    }

private:
    const Bytes& m_bytes;
    std::size_t m_position = 0;
};

std::string place(std::size_t done, const SliceHeader& header)
{
    return " after " + std::to_string(done) + " of " + number(header.width, "pixel");
}

// The runs behind a row's marker. Empty, or what is wrong with them.
std::string readRuns(const SliceHeader& header, Words& words, std::vector<std::uint32_t>& pixels)
{
    std::size_t done = 0;
    while (done < header.width) {
        if (words.isAtEnd())
            return "the data ends" + place(done, header);
        if (words.isAtMarker())
            return "a row marker" + place(done, header);
        const Words::Run run = words.next();
        if (run.count == 0 || run.count > header.width - done)
            return "a run of " + std::to_string(run.count) + place(done, header);
        pixels.insert(pixels.end(), run.count, toColour(header.bitsPerPixel, run.value));
        done += run.count;
    }
    return {};
}

// Empty, or what contradicts what; rows count from 0.
std::string readEncoded(const SliceHeader& header, const Bytes& data, std::vector<std::uint32_t>& pixels)
{
    if (data.size() % wordSize != 0)
        return number(data.size(), "byte") + " of run-length words, a word has 4";
    Words words(data);
    for (unsigned int row = 0; row < header.rows; ++row) {
        if (words.isAtEnd())
            return "the data ends after " + std::to_string(row) + " of " + number(header.rows, "row");
        if (!words.isAtMarker())
            return "row " + std::to_string(row) + " does not begin with a row marker";
        words.next();
        const std::string wrong = readRuns(header, words, pixels);
        if (!wrong.empty())
            return "row " + std::to_string(row) + ": " + wrong;
    }
    if (!words.isAtEnd())
        return number(words.bytesLeft(), "byte") + " behind the last of " + number(header.rows, "row");
    return {};
}

} // namespace

SliceDecoder::Result SliceDecoder::decode(PacketType type, const std::vector<std::uint8_t>& payload)
{
    const bool isEncoded = type == PacketType::EncodedLcdSlice;
    SliceHeader header{};
    if (payload.size() < sizeof header)
        return {std::nullopt, std::string(isEncoded ? "encoded" : "raw") + " slice of " +
                                  number(payload.size(), "byte") + ", its header has 7"};
    std::memcpy(&header, payload.data(), sizeof header);
    if (!isDepth(header.bitsPerPixel))
        return {std::nullopt, describe(type, header) + "the depths are 1, 8, 12, 16 and 24"};
    if (header.width == 0 || header.rows == 0)
        return {std::nullopt, describe(type, header) + "it has no pixels"};

    const Bytes data(payload.begin() + sizeof header, payload.end());
    Slice slice{header.lcd, header.x, header.y, header.width, header.rows, header.bitsPerPixel, {}};
    const std::string wrong =
        isEncoded ? readEncoded(header, data, slice.pixels) : readPacked(header, data, slice.pixels);
    if (!wrong.empty())
        return {std::nullopt, describe(type, header) + wrong};
    return {std::move(slice), {}};
}

} // namespace Vantor
