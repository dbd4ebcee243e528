#include "panel2mqtt/desk/PictureOrder.h"

#include "libMorvaneHostUsb/LcdPicture.h"
#include "panelctl/picture/DitherNames.h"
#include "panelctl/picture/PacketForecast.h"
#include "panelctl/picture/PngReader.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Vantor {

namespace {

using Grey = std::vector<std::uint8_t>;

constexpr unsigned int lcdRows = 256; // a slice's top row is one byte, and wraps
constexpr unsigned int lastColumn = 255;

// Left where the message is found wanting, and caught in makePicture.
[[noreturn]] void refusePicture(const std::string& reason, Answer::Word word = Answer::Word::Refused)
{
    throw Answer{word, reason};
}

[[noreturn]] void refuseProperty(std::string_view name, const std::string& expected,
                                 Answer::Word word = Answer::Word::Refused)
{
    refusePicture(std::string(name) + ": expected " + expected, word);
}

std::string describeRange(unsigned int least, unsigned int most)
{
    return "a number from " + std::to_string(least) + " to " + std::to_string(most);
}

// Beyond the range if it is a number that large; nullopt if it is none.
std::optional<std::uint64_t> parsePictureNumber(const std::string& text)
{
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (stop != end || error == std::errc::invalid_argument)
        return std::nullopt;
    return error == std::errc() ? number : UINT64_MAX;
}

unsigned int readRanged(const Message& message, std::string_view name, unsigned int otherwise, unsigned int most)
{
    const std::string* const text = message.findProperty(name);
    if (text == nullptr)
        return otherwise;
    const std::optional<std::uint64_t> number = parsePictureNumber(*text);
    if (!number || *number > most)
        refuseProperty(name, describeRange(0, most));
    return static_cast<unsigned int>(*number);
}

unsigned int readSide(const Message& message, std::string_view name)
{
    const std::string range = describeRange(1, PictureOrder::maxSide);
    const std::string* const text = message.findProperty(name);
    const std::optional<std::uint64_t> side = text != nullptr ? parsePictureNumber(*text) : std::nullopt;
    if (!side || *side == 0)
        refuseProperty(name, range + (text == nullptr ? ", with raw pixels" : ""));
    if (*side > PictureOrder::maxSide)
        refuseProperty(name, range, Answer::Word::TooLarge);
    return static_cast<unsigned int>(*side);
}

template <typename Value> struct PictureWord {
    const char* name;
    Value value;
};

template <typename Value, std::size_t count> std::string listWords(const PictureWord<Value> (&values)[count])
{
    std::string text = values[0].name;
    for (std::size_t i = 1; i < count; ++i)
        text += (i + 1 < count ? ", " : " or ") + std::string(values[i].name);
    return text;
}

template <typename Value, std::size_t count>
Value readWord(const Message& message, std::string_view name, Value otherwise,
               const PictureWord<Value> (&values)[count])
{
    const std::string* const text = message.findProperty(name);
    if (text == nullptr)
        return otherwise;
    for (const PictureWord<Value>& known : values) {
        if (*text == known.name)
            return known.value;
    }
    refuseProperty(name, listWords(values));
}

LcdHelper::DitherType readDither(const Message& message)
{
    const std::string* const text = message.findProperty("dither");
    if (text == nullptr)
        return LcdHelper::Stucki;
    const std::optional<LcdHelper::DitherType> dither = DitherNames::parse(*text);
    if (!dither)
        refuseProperty("dither", DitherNames::listAll());
    return *dither;
}

constexpr PictureWord<bool> invertWords[] = {{"yes", true}, {"no", false}};
constexpr PictureWord<bool> lockWords[] = {{"hold", true}, {"release", false}};
constexpr PictureWord<LcdPicture::Form> formWords[] = {
    {"raw", LcdPicture::Form::Raw},
    {"run-length", LcdPicture::Form::RunLength},
    {"smaller", LcdPicture::Form::Smaller},
};

// The pixels' own properties apart.
struct PictureWording {
    explicit PictureWording(const Message& message)
        : x(readRanged(message, "x", 0, lastColumn)), y(readRanged(message, "y", 0, lcdRows - 1)),
          dither(readDither(message)), threshold(readRanged(message, "threshold", 128, 255)),
          isInverted(readWord(message, "invert", false, invertWords)),
          form(readWord(message, "form", LcdPicture::Form::Raw, formWords)),
          isHeld(readWord(message, "lock", false, lockWords))
    {}

    unsigned int x;
    unsigned int y;
    LcdHelper::DitherType dither;
    unsigned int threshold;
    bool isInverted;
    LcdPicture::Form form;
    bool isHeld;
};

struct RawFormat {
    unsigned int bitsPerPixel;
    BitmapImage::Format format; // of none at 1 bit
};

constexpr PictureWord<RawFormat> rawFormats[] = {
    {"bits", {1, BitmapImage::Gray8}},     {"gray8", {8, BitmapImage::Gray8}},
    {"rgb332", {8, BitmapImage::Rgb332}},  {"rgb565", {16, BitmapImage::Rgb565}},
    {"rgb888", {24, BitmapImage::Rgb888}}, {"rgba8888", {32, BitmapImage::Rgba8888}},
};

// In grey, of which `bits` have but two.
struct PicturePixels {
    unsigned int width;
    unsigned int height;
    Grey grey;
    bool areDrawn = false; // black and white already: neither dithered nor compared with the threshold
};

PicturePixels readPng(const std::string& payload)
{
    try {
        const GreyPicture picture = PngReader::readBytes(
            payload, {PictureOrder::maxSide, std::uint64_t{PictureOrder::maxSide} * PictureOrder::maxSide});
        return {picture.getWidth(), picture.getHeight(), picture.getPixels()};
    } catch (const PngReader::Defect& defect) {
        refusePicture(std::string("the payload ") + defect.what(),
                      defect.isTooLarge() ? Answer::Word::TooLarge : Answer::Word::Refused);
    }
}

Grey spreadBits(const std::uint8_t* bits, unsigned int width, unsigned int height)
{
    Grey grey;
    grey.reserve(std::size_t{width} * height);
    for (const std::uint8_t* row = bits; grey.size() < std::size_t{width} * height; row += (width + 7) / 8) {
        for (unsigned int x = 0; x < width; ++x)
            grey.push_back((row[x / 8] >> (7 - x % 8) & 1) != 0 ? GreyPicture::black : GreyPicture::white);
    }
    return grey;
}

PicturePixels readRaw(const Message& message)
{
    if (message.findProperty("format") == nullptr)
        refuseProperty("format", listWords(rawFormats) + ", or a PNG");
    const RawFormat raw = readWord(message, "format", RawFormat{}, rawFormats);
    const unsigned int width = readSide(message, "width");
    const unsigned int height = readSide(message, "height");
    const std::size_t needed = std::size_t{(width * raw.bitsPerPixel + 7) / 8} * height;
    if (message.payload.size() != needed)
        refuseProperty("payload", std::to_string(needed) + " bytes by width, height and format, not " +
                                      std::to_string(message.payload.size()));
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(message.payload.data());
    if (raw.bitsPerPixel == 1)
        return {width, height, spreadBits(bytes, width, height), true};
    return {width, height, LcdPicture(bytes, width, height, raw.format).toGrey()};
}

PicturePixels readPixels(const Message& message)
{
    if (message.payload.size() > PictureOrder::maxPayload)
        refusePicture("the payload has " + std::to_string(message.payload.size()) + " bytes, at most " +
                          std::to_string(PictureOrder::maxPayload) + " are read",
                      Answer::Word::TooLarge);
    if (message.payload.empty())
        refusePicture("the payload is empty: expected a PNG or raw pixels");
    return PngReader::isPng(message.payload) ? readPng(message.payload) : readRaw(message);
}

bool canLeave(const std::vector<ClientLcdBitmap>& layers, unsigned int packetLimit)
{
    // Of packed pixels every row fits every limit.
    if (layers.front().encoded == 0)
        return true;
    DeviceInformation panel{};
    panel.maxPacketSize = static_cast<std::uint16_t>(std::min(packetLimit, static_cast<unsigned int>(UINT16_MAX)));
    return PacketForecast(panel, layers).isComplete();
}

std::vector<ClientLcdBitmap> makeLayers(const PicturePixels& pixels, const PictureWording& wording, std::uint16_t lcd,
                                        unsigned int packetLimit)
{
    if (wording.y + pixels.height > lcdRows)
        refuseProperty("y", describeRange(0, lcdRows - pixels.height) + ", as " + std::to_string(pixels.height) +
                                " rows end above row 256");
    LcdPicture picture(pixels.grey.data(), pixels.width, pixels.height, BitmapImage::Gray8);
    picture.dither = pixels.areDrawn ? LcdHelper::Threshold : wording.dither;
    picture.threshold = pixels.areDrawn ? 128 : static_cast<int>(wording.threshold);
    picture.isInverted = wording.isInverted;
    picture.form = wording.form;
    std::vector<ClientLcdBitmap> layers = picture.makeLayers(lcd, wording.x, wording.y);
    if (wording.form == LcdPicture::Form::Smaller && !canLeave(layers, packetLimit)) {
        picture.form = LcdPicture::Form::Raw;
        layers = picture.makeLayers(lcd, wording.x, wording.y);
    }
    if (!canLeave(layers, packetLimit))
        refusePicture("a row of it takes " + std::to_string(PacketForecast::getLongestRow(layers.front())) +
                          " bytes as run-length words, more than fits into a packet of the panel, of " +
                          std::to_string(packetLimit) + " bytes",
                      Answer::Word::TooLarge);
    return layers;
}

} // namespace

std::variant<PictureOrder::Picture, Answer> PictureOrder::makePicture(const Message& message, std::uint16_t lcd,
                                                                      unsigned int packetLimit)
{
    try {
        const PictureWording wording(message);
        Picture picture;
        picture.layers = makeLayers(readPixels(message), wording, lcd, packetLimit);
        picture.isHeld = wording.isHeld;
        for (const ClientLcdBitmap& layer : picture.layers)
            picture.bytes += sizeof layer + layer.size();
        return picture;
    } catch (const Answer& answer) {
        return answer;
    }
}

} // namespace Vantor
