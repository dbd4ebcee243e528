#include "libMorvaneHostUsb/LcdPicture.h"

#include "libMorvaneHostUsb/LogOutput.h"
#include "libMorvaneHostUsb/PriorityPacker.h"
#include "libMorvaneHostUsb/imaging/GreyToBits.h"
#include "libMorvaneHostUsb/imaging/PixelFormat.h"

namespace Vantor {

namespace {

using Bytes = std::vector<unsigned char>;
using Layers = std::vector<ClientLcdBitmap>;

constexpr unsigned int bitsPerByte = 8;
constexpr unsigned int longestSide = 255;
constexpr unsigned int lastColumn = 255; // where a layer may begin
constexpr unsigned int lcdRows = 256;    // a slice's top row is one byte, and wraps
constexpr unsigned int dithered = 128;   // between the two shades

// Of a pixel; 0 for what is no picture's format here. Rgb444 is none, as its rows may end
// within a byte.
std::size_t bytesOf(BitmapImage::Format format)
{
    switch (format) {
    case BitmapImage::Gray8:
    case BitmapImage::Rgb332:
        return 1;
    case BitmapImage::Rgb565:
        return 2;
    case BitmapImage::Rgb888:
        return 3;
    case BitmapImage::Rgba8888:
        return 4;
    default:
        return 0;
    }
}

unsigned char greyOf(std::uint32_t colour)
{
    return static_cast<unsigned char>(
        (299 * (colour >> 16 & 0xFF) + 587 * (colour >> 8 & 0xFF) + 114 * (colour & 0xFF) + 500) / 1000);
}

// PixelFormat reads it on black.
std::uint32_t onWhite(const unsigned char* pixel)
{
    const unsigned int alpha = pixel[3];
    const auto blend = [alpha](unsigned int level) { return (level * alpha + 255 * (255 - alpha) + 127) / 255; };
    return PixelFormat::rgb(blend(pixel[0]), blend(pixel[1]), blend(pixel[2]));
}

unsigned char readGrey(const unsigned char* pixel, BitmapImage::Format format)
{
    switch (format) {
    case BitmapImage::Gray8:
        return *pixel;
    case BitmapImage::Rgb332:
        return greyOf(PixelFormat::read<BitmapImage::Rgb332>(pixel, 0, true));
    case BitmapImage::Rgb565:
        return greyOf(PixelFormat::read<BitmapImage::Rgb565>(pixel, 0, true));
    case BitmapImage::Rgb888:
        return greyOf(PixelFormat::read<BitmapImage::Rgb888>(pixel, 0, true));
    default:
        return greyOf(onWhite(pixel));
    }
}

// Why there is nothing to read; null if there is.
const char* findUnreadable(const LcdPicture& picture)
{
    if (picture.pixels == nullptr || picture.width == 0 || picture.height == 0)
        return "it has no pixels";
    const std::size_t pixelSize = bytesOf(picture.format);
    if (pixelSize == 0)
        return "its format is none of Gray8, Rgb332, Rgb565, Rgb888 and Rgba8888";
    if (picture.stride != 0 && picture.stride / pixelSize < picture.width)
        return "its stride is shorter than a row";
    return nullptr;
}

const char* findMisfit(const LcdPicture& picture, unsigned int x, unsigned int y)
{
    if (picture.width > longestSide || picture.height > longestSide)
        return "a layer has at most 255 pixels a side";
    if (x > lastColumn)
        return "a layer begins at column 255 at most";
    if (y > lcdRows - picture.height)
        return "it reaches past row 255, the last one that an LCD can have";
    return nullptr;
}

void refuse(const LcdPicture& picture, const char* problem)
{
    MORVANE_LOG(LogLevel::Error, "[libusb] LcdPicture of %ux%u pixels refused: %s\n", picture.width, picture.height,
                problem);
}

ClientLcdBitmap makeLayer(unsigned int x, unsigned int y, unsigned int width, unsigned int height)
{
    ClientLcdBitmap layer(static_cast<unsigned char>(width), static_cast<unsigned char>(height), 1);
    layer.x = static_cast<std::uint8_t>(x);
    layer.y = static_cast<std::uint8_t>(y);
    return layer;
}

// Some of a picture's columns, whole bytes of them.
void addRaw(Layers& layers, const GreyToBits::View& picture, unsigned int x, unsigned int y, unsigned int left,
            unsigned int width)
{
    layers.push_back(makeLayer(x + left, y, width, picture.height));
    // Columns to the left of it are at negative places, and clipped.
    GreyToBits::drawRows(layers.back().data(), width, picture.height, picture, {0U - left, 0}, dithered);
}

Layers makeRaw(const GreyToBits::View& picture, unsigned int x, unsigned int y)
{
    const unsigned int rest = picture.width % bitsPerByte;
    Layers layers;
    addRaw(layers, picture, x, y, 0, picture.width - rest);
    if (rest != 0)
        addRaw(layers, picture, x, y, picture.width - bitsPerByte, bitsPerByte);
    return layers;
}

Layers makeEncoded(const GreyToBits::View& picture, unsigned int x, unsigned int y)
{
    const unsigned char* const end = picture.pixels + std::size_t{picture.width} * picture.height;
    std::vector<unsigned int> bits;
    for (const unsigned char* pixel = picture.pixels; pixel != end; ++pixel)
        bits.push_back(*pixel < dithered ? 1 : 0);
    ClientLcdBitmap layer = makeLayer(x, y, picture.width, picture.height);
    layer.buffer.resize(std::size_t{4} * picture.height * (1 + picture.width)); // a marker and a run for every pixel
    PriorityPacker::compressImage(bits.data(), static_cast<int>(picture.width), static_cast<int>(picture.height),
                                  layer.x, layer.y, layer);
    layer.buffer.resize(layer.encodedSize);
    layer.encoded = 1;
    return {layer};
}

std::size_t countBytes(const Layers& layers)
{
    std::size_t bytes = 0;
    for (const ClientLcdBitmap& layer : layers)
        bytes += layer.size();
    return bytes;
}

// A raw slice is one run of bits, cut to whole bytes: only rows of whole bytes survive
// every way of slicing. The last columns have a layer of their own where there is room.
bool canBeRaw(unsigned int width, unsigned int x)
{
    return width % bitsPerByte == 0 || (width > bitsPerByte && x + width - bitsPerByte <= lastColumn);
}

Layers makeForm(LcdPicture::Form form, const GreyToBits::View& picture, unsigned int x, unsigned int y)
{
    if (form == LcdPicture::Form::RunLength || !canBeRaw(picture.width, x))
        return makeEncoded(picture, x, y);
    Layers raw = makeRaw(picture, x, y);
    if (form == LcdPicture::Form::Raw)
        return raw;
    Layers encoded = makeEncoded(picture, x, y);
    return countBytes(encoded) < countBytes(raw) ? encoded : raw;
}

} // namespace

LcdPicture::LcdPicture(const unsigned char* data, unsigned int columns, unsigned int rows,
                       BitmapImage::Format pixelFormat)
    : pixels(data), width(columns), height(rows), format(pixelFormat), stride(0), dither(LcdHelper::Stucki),
      threshold(128), isInverted(false), form(Form::Raw)
{}

std::vector<unsigned char> LcdPicture::toGrey() const
{
    if (const char* const problem = findUnreadable(*this)) {
        refuse(*this, problem);
        return {};
    }
    const std::size_t pixelSize = bytesOf(format);
    const std::size_t rowSize = stride != 0 ? stride : width * pixelSize;
    Bytes grey;
    grey.reserve(std::size_t{width} * height);
    for (unsigned int y = 0; y < height; ++y) {
        const unsigned char* pixel = pixels + y * rowSize;
        for (unsigned int x = 0; x < width; ++x, pixel += pixelSize)
            grey.push_back(readGrey(pixel, format));
    }
    return grey;
}

std::vector<ClientLcdBitmap> LcdPicture::makeLayers(std::uint16_t lcd, unsigned int x, unsigned int y) const
{
    if (const char* const problem = findMisfit(*this, x, y)) {
        refuse(*this, problem);
        return {};
    }
    Bytes grey = toGrey();
    if (grey.empty())
        return {};
    for (unsigned char& pixel : grey)
        pixel = static_cast<unsigned char>(isInverted ? 255 - pixel : pixel);
    LcdHelper::ditherImage(grey.data(), static_cast<int>(width), static_cast<int>(height), dither, threshold);
    Layers layers = makeForm(form, {grey.data(), width, height}, x, y);
    for (ClientLcdBitmap& layer : layers)
        layer.lcd = lcd;
    return layers;
}

} // namespace Vantor
