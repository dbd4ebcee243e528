#include "libMorvaneHostUsb/imaging/ImageCopy.h"

#include "libMorvaneHostUsb/imaging/PixelFormat.h"

#include <algorithm>
#include <cstdint>

namespace Vantor {

namespace {

// The part of the source that falls on the target, and where that lies.
struct Copy {
    BitmapImage& target;
    const BitmapImage& source;
    std::int64_t x;
    std::int64_t y;

    static std::int64_t beginOf(std::int64_t position) { return std::max<std::int64_t>(0, -position); }
    static std::int64_t endOf(std::int64_t position, int size, int limit)
    {
        return std::min<std::int64_t>(size, limit - position);
    }
};

template <int from, int to> void copyPixels(const Copy& copy)
{
    const std::int64_t begin = Copy::beginOf(copy.x);
    const std::int64_t end = Copy::endOf(copy.x, copy.source.width, copy.target.width);
    const std::int64_t bottom = Copy::endOf(copy.y, copy.source.height, copy.target.height);
    for (std::int64_t row = Copy::beginOf(copy.y); row < bottom; ++row) {
        const auto sourceRow = static_cast<std::size_t>(row * copy.source.width);
        const auto targetRow = static_cast<std::size_t>((copy.y + row) * copy.target.width + copy.x);
        for (std::int64_t column = begin; column < end; ++column) {
            const auto at = static_cast<std::size_t>(column);
            const unsigned int colour = PixelFormat::read<from>(copy.source.data, sourceRow + at, at % 2 == 0);
            PixelFormat::write<to>(copy.target.data, targetRow + at, (copy.x + column) % 2 == 0, colour);
        }
    }
}

template <int to> void copyFromAny(const Copy& copy)
{
    switch (copy.source.format) {
    case BitmapImage::Gray8:
        return copyPixels<BitmapImage::Gray8, to>(copy);
    case BitmapImage::Rgb332:
        return copyPixels<BitmapImage::Rgb332, to>(copy);
    case BitmapImage::Rgb444:
        return copyPixels<BitmapImage::Rgb444, to>(copy);
    case BitmapImage::Rgb565:
        return copyPixels<BitmapImage::Rgb565, to>(copy);
    case BitmapImage::Rgb888:
        return copyPixels<BitmapImage::Rgb888, to>(copy);
    case BitmapImage::Rgba8888:
        return copyPixels<BitmapImage::Rgba8888, to>(copy);
    default:
        return copyPixels<0, to>(copy); // black
    }
}

} // namespace

void copyImage(BitmapImage& target, const BitmapImage& source, int x, int y)
{
    const Copy copy{target, source, x, y};
    switch (target.format) {
    case BitmapImage::Rgb444:
        return copyFromAny<BitmapImage::Rgb444>(copy);
    case BitmapImage::Rgb565:
        return copyFromAny<BitmapImage::Rgb565>(copy);
    case BitmapImage::Rgb888:
        return copyFromAny<BitmapImage::Rgb888>(copy);
    default:
        return; // left unchanged
    }
}

} // namespace Vantor
