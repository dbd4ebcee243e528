#include "libMorvaneHostUsb/LcdHelper.h"

#include <cstddef>
#include <cstdint>

namespace Vantor {

namespace {

// A share of the error, error × numerator / denominator, for the pixel at (dx, dy).
struct Share {
    int dx;
    int dy;
    int numerator;
    int denominator;
};

constexpr Share atkinsonShares[] = {{1, 0, 1, 8}, {2, 0, 1, 8}, {-1, 1, 1, 8},
                                    {0, 1, 1, 8}, {1, 1, 1, 8}, {0, 2, 1, 8}};
constexpr Share floydSteinbergShares[] = {{1, 0, 7, 16}, {-1, 1, 3, 16}, {0, 1, 5, 16}, {1, 1, 1, 16}};
// The first row has 1/6 and 5/42 where textbooks have 8/42 and 4/42.
constexpr Share stuckiShares[] = {{1, 0, 1, 6},   {2, 0, 5, 42}, {-2, 1, 1, 21}, {-1, 1, 4, 42},
                                  {0, 1, 8, 42},  {1, 1, 4, 42}, {2, 1, 1, 21},  {-2, 2, 1, 42},
                                  {-1, 2, 1, 21}, {0, 2, 4, 42}, {1, 2, 1, 21},  {2, 2, 1, 42}};

template <std::size_t count>
void diffuse(const Share (&shares)[count], unsigned char* image, int x, int y, int width, int height, int error)
{
    for (const Share& share : shares)
        LcdHelper::addPixel(image, x + share.dx, y + share.dy, width, height,
                            error * share.numerator / share.denominator);
}

void diffuse(LcdHelper::DitherType type, unsigned char* image, int x, int y, int width, int height, int error)
{
    switch (type) {
    case LcdHelper::Atkinson:
        diffuse(atkinsonShares, image, x, y, width, height, error);
        break;
    case LcdHelper::FloydSteinberg:
        diffuse(floydSteinbergShares, image, x, y, width, height, error);
        break;
    case LcdHelper::Stucki:
        diffuse(stuckiShares, image, x, y, width, height, error);
        break;
    default:
        break;
    }
}

// Calls set(column, row) for every dark pixel that falls inside the LCD. Positions
// are compared as unsigned values, which clips negative ones.
template <typename Set>
void compositeDarkPixels(const unsigned char* image, unsigned int imageWidth, unsigned int imageHeight,
                         unsigned int lcdWidth, unsigned int lcdHeight, int x, int y, int threshold, Set set)
{
    if (imageWidth == 0)
        return; // whatever the height claims
    for (unsigned int r = 0; r < imageHeight; ++r) {
        const unsigned int row = static_cast<unsigned int>(y) + r;
        if (row >= lcdHeight)
            continue;
        const unsigned char* const pixels = image + static_cast<std::size_t>(r) * imageWidth;
        for (unsigned int c = 0; c < imageWidth; ++c) {
            const unsigned int column = static_cast<unsigned int>(x) + c;
            if (column < lcdWidth && pixels[c] < threshold)
                set(column, row);
        }
    }
}

void setBit(unsigned char& byte, unsigned int bit)
{
    byte = static_cast<unsigned char>(byte | 1U << bit);
}

void storeRgb565(unsigned char* pixel, unsigned int red, unsigned int green, unsigned int blue)
{
    const unsigned int word = (red >> 3) << 11 | (green >> 2) << 5 | blue >> 3;
    pixel[0] = static_cast<unsigned char>(word);
    pixel[1] = static_cast<unsigned char>(word >> 8);
}

// An even column writes its shared byte whole, an odd one ORs into it.
void storeRgb444(unsigned char* pixel, bool evenColumn, unsigned int red, unsigned int green, unsigned int blue)
{
    if (evenColumn) {
        pixel[0] = static_cast<unsigned char>((red >> 4) << 4 | green >> 4);
        pixel[1] = static_cast<unsigned char>((blue >> 4) << 4);
    } else {
        pixel[0] = static_cast<unsigned char>(pixel[0] | red >> 4);
        pixel[1] = static_cast<unsigned char>((green >> 4) << 4 | blue >> 4);
    }
}

void storePixel(BitmapImage& target, int x, int y, unsigned int colour)
{
    const unsigned int red = colour >> 16 & 255;
    const unsigned int green = colour >> 8 & 255;
    const unsigned int blue = colour & 255;
    const auto index =
        static_cast<std::size_t>(x) + static_cast<std::size_t>(target.width) * static_cast<std::size_t>(y);
    switch (target.format) {
    case BitmapImage::Rgb565:
        storeRgb565(target.data + index * 2, red, green, blue);
        break;
    case BitmapImage::Rgb888: {
        // Cut to 16 bits: the limit of this format's addressing.
        unsigned char* const pixel = target.data + static_cast<std::uint16_t>(index * 3);
        pixel[0] = static_cast<unsigned char>(red);
        pixel[1] = static_cast<unsigned char>(green);
        pixel[2] = static_cast<unsigned char>(blue);
        break;
    }
    case BitmapImage::Rgb444:
        storeRgb444(target.data + index * 12 / 8, x % 2 == 0, red, green, blue);
        break;
    default:
        break;
    }
}

bool isInside(std::int64_t position, int limit)
{
    return position >= 0 && position < limit;
}

} // namespace

void LcdHelper::addPixel(unsigned char* image, int x, int y, int width, int height, int delta)
{
    // Row 0 and column 0 never receive diffused error.
    if (x <= 0 || y <= 0 || x >= width || y >= height)
        return;
    unsigned char& pixel =
        image[static_cast<std::size_t>(x) + static_cast<std::size_t>(width) * static_cast<std::size_t>(y)];
    const std::int64_t sum = std::int64_t{pixel} + delta;
    // Not clamped at the top: sums above 255 wrap.
    pixel = sum < 0 ? 0 : static_cast<unsigned char>(sum);
}

void LcdHelper::ditherImage(unsigned char* image, int width, int height, DitherType type, int threshold)
{
    if (width < 1 || height < 1)
        return;
    for (int y = 0; y < height; ++y) {
        unsigned char* const row = image + static_cast<std::size_t>(width) * static_cast<std::size_t>(y);
        for (int x = 0; x < width; ++x) {
            const int old = row[x];
            const int level = old < threshold ? 0 : 255;
            row[x] = static_cast<unsigned char>(level);
            diffuse(type, image, x, y, width, height, old - level);
        }
    }
}

void LcdHelper::compositeToLcd(unsigned char* lcd, const unsigned char* image, unsigned int imageWidth,
                               unsigned int imageHeight, unsigned int lcdWidth, unsigned int lcdHeight, int x, int y,
                               int threshold)
{
    compositeDarkPixels(image, imageWidth, imageHeight, lcdWidth, lcdHeight, x, y, threshold,
                        [lcd, lcdWidth](unsigned int column, unsigned int row) {
                            setBit(lcd[static_cast<std::size_t>(row / 8) * lcdWidth + column], row % 8);
                        });
}

void LcdHelper::compositeToLcd(LcdBitmap* lcd, const unsigned char* image, unsigned int imageWidth,
                               unsigned int imageHeight, int x, int y, int threshold)
{
    compositeToLcd(lcd->data, image, imageWidth, imageHeight, LcdBitmap::width, LcdBitmap::height, x, y, threshold);
}

void LcdHelper::compositeToLcd(TransLcdBitmap* lcd, const unsigned char* image, unsigned int imageWidth,
                               unsigned int imageHeight, int x, int y, int threshold)
{
    compositeDarkPixels(image, imageWidth, imageHeight, TransLcdBitmap::width, TransLcdBitmap::height, x, y, threshold,
                        [lcd](unsigned int column, unsigned int row) {
                            setBit(lcd->data[row * TransLcdBitmap::width / 8 + column / 8], 7 - column % 8);
                        });
}

void LcdHelper::compositeToLcd(BitmapImage* target, const BitmapImage& source, int x, int y)
{
    for (int r = 0; r < source.height; ++r) {
        const std::int64_t row = static_cast<std::int64_t>(y) + r;
        if (!isInside(row, target->height))
            continue;
        for (int c = 0; c < source.width; ++c) {
            const std::int64_t column = static_cast<std::int64_t>(x) + c;
            if (isInside(column, target->width))
                storePixel(*target, static_cast<int>(column), static_cast<int>(row), source.getRgbPixel(c, r));
        }
    }
}

} // namespace Vantor
