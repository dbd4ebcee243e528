#include "libMorvaneHostUsb/imaging/GreyToBits.h"

#include "libMorvaneHostUsb/imaging/LanePacking.h"
#include "libMorvaneHostUsb/imaging/Lanes.h"

#include <algorithm>
#include <array>

namespace Vantor {

namespace {

struct Span {
    unsigned int begin;
    unsigned int end;
};

// Which rows or columns of a picture fall on the LCD. Positions are compared as unsigned
// values, which clips negative ones, and those behind the highest begin again at 0.
std::array<Span, 2> visible(unsigned int size, unsigned int position, unsigned int lcdSize)
{
    const unsigned int untilZero = 0 - position; // 0: never again
    const unsigned int first = position < lcdSize ? std::min(size, lcdSize - position) : 0;
    if (untilZero == 0 || size <= untilZero)
        return {{{0, first}, {0, 0}}};
    return {{{0, first}, {untilZero, untilZero + std::min(size - untilZero, lcdSize)}}};
}

template <typename Draw>
void forEachVisible(unsigned int size, unsigned int position, unsigned int lcdSize, const Draw& draw)
{
    for (const Span& span : visible(size, position, lcdSize)) {
        if (span.begin < span.end)
            draw(span.begin, span.end);
    }
}

const unsigned char* pixelsAt(const GreyToBits::View& picture, unsigned int column, unsigned int row)
{
    return picture.pixels + static_cast<std::size_t>(row) * picture.width + column;
}

// Pages' columns of up to 8 rows.
void packColumns(unsigned char* bytes, const unsigned char* pixels, std::size_t stride, unsigned int rows,
                 unsigned int firstBit, std::size_t count, int threshold)
{
    std::size_t done = 0;
    if (Lanes::areUsed())
        done = LanePacking::packColumns(bytes, pixels, stride, rows, firstBit, count, threshold);
    for (; done < count; ++done) {
        unsigned int bits = 0;
        for (unsigned int row = 0; row < rows; ++row)
            bits |= (pixels[row * stride + done] < threshold ? 1U : 0U) << row;
        bytes[done] = static_cast<unsigned char>(bytes[done] | bits << firstBit);
    }
}

// A byte's pixels, or some that are less.
unsigned int bitsOf(const unsigned char* pixels, std::size_t count, int threshold)
{
    unsigned int bits = 0;
    for (std::size_t i = 0; i < count; ++i)
        bits = bits << 1 | (pixels[i] < threshold ? 1U : 0U);
    return bits;
}

void setBits(unsigned char& byte, unsigned int bits)
{
    byte = static_cast<unsigned char>(byte | bits);
}

void packRow(unsigned char* row, std::size_t column, const unsigned char* pixels, std::size_t count, int threshold)
{
    unsigned char* byte = row + column / 8;
    if (column % 8 != 0) {
        const std::size_t toByte = 8 - column % 8;
        const std::size_t head = std::min(toByte, count);
        setBits(*byte++, bitsOf(pixels, head, threshold) << (toByte - head));
        pixels += head;
        count -= head;
    }
    std::size_t done = 0;
    if (Lanes::areUsed())
        done = LanePacking::packRow(byte, pixels, count, threshold);
    for (; count - done >= 8; done += 8)
        setBits(byte[done / 8], bitsOf(pixels + done, 8, threshold));
    if (const std::size_t rest = count - done; rest != 0)
        setBits(byte[done / 8], bitsOf(pixels + done, rest, threshold) << (8 - rest));
}

// Beyond them, thresholds differ in nothing.
int limited(int threshold)
{
    return std::clamp(threshold, 0, 256);
}

} // namespace

void GreyToBits::threshold(unsigned char* pixels, std::size_t count, int threshold)
{
    std::size_t done = 0;
    if (Lanes::areUsed())
        done = LanePacking::dither(pixels, count, limited(threshold));
    for (; done < count; ++done)
        pixels[done] = pixels[done] < threshold ? 0 : 255;
}

void GreyToBits::drawPages(unsigned char* lcd, unsigned int lcdWidth, unsigned int lcdHeight, const View& picture,
                           const Place& place, int threshold)
{
    const auto drawPart = [&](unsigned int left, unsigned int right, unsigned int top, unsigned int bottom) {
        for (unsigned int row = top; row < bottom;) {
            const unsigned int lcdRow = place.y + row;
            const unsigned int rows = std::min(8 - lcdRow % 8, bottom - row);
            unsigned char* const page = lcd + static_cast<std::size_t>(lcdRow / 8) * lcdWidth;
            packColumns(page + (place.x + left), pixelsAt(picture, left, row), picture.width, rows, lcdRow % 8,
                        right - left, limited(threshold));
            row += rows;
        }
    };
    forEachVisible(picture.height, place.y, lcdHeight, [&](unsigned int top, unsigned int bottom) {
        forEachVisible(picture.width, place.x, lcdWidth,
                       [&](unsigned int left, unsigned int right) { drawPart(left, right, top, bottom); });
    });
}

void GreyToBits::drawRows(unsigned char* lcd, unsigned int lcdWidth, unsigned int lcdHeight, const View& picture,
                          const Place& place, int threshold)
{
    forEachVisible(picture.height, place.y, lcdHeight, [&](unsigned int top, unsigned int bottom) {
        forEachVisible(picture.width, place.x, lcdWidth, [&](unsigned int left, unsigned int right) {
            for (unsigned int row = top; row < bottom; ++row) {
                unsigned char* const bytes = lcd + static_cast<std::size_t>(place.y + row) * (lcdWidth / 8);
                packRow(bytes, place.x + left, pixelsAt(picture, left, row), right - left, limited(threshold));
            }
        });
    });
}

} // namespace Vantor
