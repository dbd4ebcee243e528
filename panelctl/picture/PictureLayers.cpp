#include "panelctl/picture/PictureLayers.h"

#include "libMorvaneHostUsb/PriorityPacker.h"
#include "wire/SliceHeader.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace Vantor {

namespace {

constexpr unsigned int bitsPerByte = 8;
constexpr unsigned int lastColumn = std::numeric_limits<std::uint8_t>::max();
constexpr std::size_t wordSize = 4;

bool isDark(const GreyPicture& picture, unsigned int x, unsigned int y)
{
    return picture.get(x, y) < 128;
}

ClientLcdBitmap makeLayer(const PictureLayers::Place& place, unsigned int left, unsigned int width, unsigned int height)
{
    ClientLcdBitmap layer(static_cast<unsigned char>(width), static_cast<unsigned char>(height), 1);
    layer.lcd = place.lcd;
    layer.x = static_cast<std::uint8_t>(place.x + left);
    layer.y = place.y;
    return layer;
}

// `width` columns from `left` on; a multiple of 8.
ClientLcdBitmap makeRaw(const GreyPicture& picture, const PictureLayers::Place& place, unsigned int left,
                        unsigned int width)
{
    ClientLcdBitmap layer = makeLayer(place, left, width, picture.getHeight());
    std::size_t bit = 0;
    for (unsigned int y = 0; y < picture.getHeight(); ++y)
        for (unsigned int x = left; x < left + width; ++x, ++bit)
            if (isDark(picture, x, y)) {
                unsigned char& byte = layer.buffer[bit / bitsPerByte];
                byte = static_cast<unsigned char>(byte | 0x80U >> bit % bitsPerByte);
            }
    return layer;
}

ClientLcdBitmap makeEncoded(const GreyPicture& picture, const PictureLayers::Place& place)
{
    const unsigned int width = picture.getWidth();
    const unsigned int height = picture.getHeight();
    std::vector<unsigned int> pixels;
    for (unsigned int y = 0; y < height; ++y)
        for (unsigned int x = 0; x < width; ++x)
            pixels.push_back(isDark(picture, x, y) ? 1 : 0);
    ClientLcdBitmap layer = makeLayer(place, 0, width, height);
    layer.buffer.resize(wordSize * height * (1 + width)); // a marker and a run for every pixel
    PriorityPacker::compressImage(pixels.data(), static_cast<int>(width), static_cast<int>(height), place.x, place.y,
                                  layer);
    layer.buffer.resize(layer.encodedSize);
    layer.encoded = 1;
    return layer;
}

} // namespace

PictureLayers::Form PictureLayers::choose(Form wanted, unsigned int width, const Place& place)
{
    const bool isWhole = width % bitsPerByte == 0;
    const bool hasRoom = width > bitsPerByte && place.x + width - bitsPerByte <= lastColumn;
    return wanted == Form::Raw && (isWhole || hasRoom) ? Form::Raw : Form::RunLength;
}

std::vector<ClientLcdBitmap> PictureLayers::make(const GreyPicture& picture, const Place& place, Form form)
{
    const unsigned int width = picture.getWidth();
    std::vector<ClientLcdBitmap> layers;
    if (form == Form::RunLength) {
        layers.push_back(makeEncoded(picture, place));
        return layers;
    }
    layers.push_back(makeRaw(picture, place, 0, width - width % bitsPerByte));
    if (width % bitsPerByte != 0)
        layers.push_back(makeRaw(picture, place, width - bitsPerByte, bitsPerByte));
    return layers;
}

std::size_t PictureLayers::getLongestRow(const ClientLcdBitmap& encoded)
{
    std::size_t longest = 0;
    std::size_t row = 0;
    for (std::size_t offset = 0; offset < encoded.encodedSize; offset += wordSize) {
        std::uint32_t word = 0;
        std::memcpy(&word, encoded.data() + offset, wordSize);
        row = word == SliceHeader::rowMarker ? wordSize : row + wordSize;
        longest = std::max(longest, row);
    }
    return longest;
}

} // namespace Vantor
