// LCD slices in sound packets, so that all of the input is about slices: a sequence of
// slices, each a byte (bit 0: encoded), a 16-bit payload size and the payload. What a
// panel shows afterwards is compared with a slow reading of the wire, bit by bit.
#include "simulator/panel/PanelModel.h"
#include "simulator/panel/SliceDecoder.h"
#include "tests/fuzz/Require.h"
#include "tests/support/Bytes.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>

using namespace Vantor;

namespace {

// `count` bits from `position` on, the most significant first.
std::uint32_t bitsAt(const std::uint8_t* data, std::size_t position, unsigned int count)
{
    std::uint32_t value = 0;
    for (std::size_t bit = position; bit < position + count; ++bit)
        value = value << 1 | (data[bit / 8] >> (7 - bit % 8) & 1U);
    return value;
}

std::uint32_t colourAt(const std::uint8_t* data, std::size_t position, unsigned int bitsPerPixel)
{
    const auto channel = [data, &position](unsigned int bits) {
        const std::uint32_t level = bitsAt(data, position, bits);
        position += bits;
        return level * 255 / ((1U << bits) - 1);
    };
    if (bitsPerPixel == 1)
        return bitsAt(data, position, 1) != 0 ? 0 : 0xFFFFFF;
    if (bitsPerPixel == 16) {
        const std::uint8_t word[2] = {data[position / 8 + 1], data[position / 8]};
        return bitsAt(word, 0, 5) * 255 / 31 << 16 | bitsAt(word, 5, 6) * 255 / 63 << 8 |
               bitsAt(word, 11, 5) * 255 / 31;
    }
    const unsigned int bits = bitsPerPixel == 8 ? 3 : bitsPerPixel / 3;
    const std::uint32_t red = channel(bits);
    const std::uint32_t green = channel(bits);
    return red << 16 | green << 8 | channel(bitsPerPixel == 8 ? 2 : bits);
}

void checkRaw(const SliceDecoder::Slice& slice, const Bytes& payload)
{
    const unsigned int bitsPerPixel = payload[6];
    require(slice.pixels.size() == (payload.size() - 7) * 8 / bitsPerPixel, "as many pixels as there are bits");
    for (std::size_t i = 0; i < slice.pixels.size(); ++i)
        require(slice.pixels[i] == colourAt(payload.data() + 7, i * bitsPerPixel, bitsPerPixel), "the pixel's colour");
}

// Says the same in 24 bits, packed.
void checkEncoded(const SliceDecoder::Slice& slice, const Bytes& payload)
{
    require(slice.pixels.size() == std::size_t{slice.width} * slice.rows, "every pixel");
    Bytes packed(payload.begin(), payload.begin() + 6);
    packed.push_back(24);
    for (const std::uint32_t pixel : slice.pixels)
        for (const unsigned int shift : {16U, 8U, 0U})
            packed.push_back(static_cast<std::uint8_t>(pixel >> shift));
    const SliceDecoder::Result again = SliceDecoder::decode(PacketType::LcdSlice, packed);
    require(again.slice && again.slice->pixels == slice.pixels, "the same picture, packed");
}

void checkScreen(const SliceDecoder::Slice& slice, const PanelScreen& screen)
{
    for (std::size_t i = 0; i < slice.pixels.size(); ++i) {
        const std::size_t x = slice.x + i % slice.width;
        const std::size_t y = slice.y + i / slice.width;
        if (x < screen.getWidth() && y < screen.getHeight())
            require(screen.getPixels()[y * screen.getWidth() + x] == slice.pixels[i], "the pixel on the screen");
    }
}

void draw(PanelModel& panel, PacketType type, const Bytes& payload)
{
    const std::size_t size = 8 + 3 + payload.size();
    Bytes packet{static_cast<std::uint8_t>(size), static_cast<std::uint8_t>(size >> 8), 1};
    packet.resize(8);
    packet.push_back(static_cast<std::uint8_t>(type));
    packet.push_back(static_cast<std::uint8_t>(payload.size()));
    packet.push_back(static_cast<std::uint8_t>(payload.size() >> 8));
    packet.insert(packet.end(), payload.begin(), payload.end());
    const std::size_t violations = panel.getViolations().size();
    panel.submitOut(&panel, 1, packet, true);
    panel.takeCompletions();

    const SliceDecoder::Result result = SliceDecoder::decode(type, payload);
    require(result.slice.has_value() == result.violation.empty(), "a slice or a violation");
    if (!result.slice) {
        require(panel.getViolations().size() > violations || violations > PanelModel::maxViolations, "it is reported");
        return;
    }
    if (type == PacketType::LcdSlice)
        checkRaw(*result.slice, payload);
    else
        checkEncoded(*result.slice, payload);
    const auto screen = panel.getScreens().find(result.slice->lcd);
    if (screen != panel.getScreens().end())
        checkScreen(*result.slice, screen->second);
    else
        require(panel.getScreens().size() == PanelModel::maxScreens, "only the cap keeps a slice from an LCD");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    PanelModel::Options options;
    options.maxPacketSize = 65535;
    options.keepRecords = false;
    options.lcdSizes = {{0, {20, 10}}, {1, {510, 510}}};
    PanelModel panel(options, [] { return std::chrono::nanoseconds(0); });
    while (size >= 3) {
        const PacketType type = (data[0] & 1) != 0 ? PacketType::EncodedLcdSlice : PacketType::LcdSlice;
        const std::size_t wanted = data[1] | static_cast<std::size_t>(data[2]) << 8;
        data += 3;
        size -= 3;
        const std::size_t length = std::min({wanted, size, PanelModel::maxPayload});
        draw(panel, type, {data, data + length});
        data += length;
        size -= length;
    }
    return 0;
}
