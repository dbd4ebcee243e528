#include "libMorvaneHostUsb/LcdHelper.h"

#include "libMorvaneHostUsb/imaging/GreyToBits.h"
#include "libMorvaneHostUsb/imaging/ImageCopy.h"
#include "libMorvaneHostUsb/imaging/Lanes.h"
#include "libMorvaneHostUsb/imaging/TableDither.h"
#include "libMorvaneHostUsb/imaging/WavefrontDither.h"

#include <cstddef>
#include <cstdint>

namespace Vantor {

namespace {

struct Picture {
    unsigned char* pixels;
    std::ptrdiff_t width;
    std::ptrdiff_t height;
};

// Bands of rows in byte lanes where there are any, and the rest a row after the other.
template <typename Diffusion>
void dither(const Picture& picture, int threshold, decltype(&WavefrontDither::atkinson) ditherBands)
{
    const auto& [pixels, width, height] = picture;
    const std::ptrdiff_t row = Lanes::areUsed() ? ditherBands(pixels, width, height, threshold) : 0;
    if (row < height)
        TableDither<Diffusion>(threshold).dither(pixels, width, height, row);
}

GreyToBits::Place placeOf(int x, int y)
{
    return {static_cast<unsigned int>(x), static_cast<unsigned int>(y)};
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
    const Picture picture{image, width, height};
    switch (type) {
    case Atkinson:
        return dither<AtkinsonDiffusion>(picture, threshold, WavefrontDither::atkinson);
    case FloydSteinberg:
        return dither<FloydSteinbergDiffusion>(picture, threshold, WavefrontDither::floydSteinberg);
    case Stucki:
        return dither<StuckiDiffusion>(picture, threshold, WavefrontDither::stucki);
    default:
        GreyToBits::threshold(image, static_cast<std::size_t>(width) * static_cast<std::size_t>(height), threshold);
    }
}

void LcdHelper::compositeToLcd(unsigned char* lcd, const unsigned char* image, unsigned int imageWidth,
                               unsigned int imageHeight, unsigned int lcdWidth, unsigned int lcdHeight, int x, int y,
                               int threshold)
{
    GreyToBits::drawPages(lcd, lcdWidth, lcdHeight, {image, imageWidth, imageHeight}, placeOf(x, y), threshold);
}

void LcdHelper::compositeToLcd(LcdBitmap* lcd, const unsigned char* image, unsigned int imageWidth,
                               unsigned int imageHeight, int x, int y, int threshold)
{
    compositeToLcd(lcd->data, image, imageWidth, imageHeight, LcdBitmap::width, LcdBitmap::height, x, y, threshold);
}

void LcdHelper::compositeToLcd(TransLcdBitmap* lcd, const unsigned char* image, unsigned int imageWidth,
                               unsigned int imageHeight, int x, int y, int threshold)
{
    GreyToBits::drawRows(lcd->data, TransLcdBitmap::width, TransLcdBitmap::height, {image, imageWidth, imageHeight},
                         placeOf(x, y), threshold);
}

void LcdHelper::compositeToLcd(BitmapImage* target, const BitmapImage& source, int x, int y)
{
    copyImage(*target, source, x, y);
}

} // namespace Vantor
