#include "libMorvaneHostUsb/BitmapImage.h"

#include "libMorvaneHostUsb/imaging/PixelFormat.h"

#include <cstddef>

namespace Vantor {

unsigned int BitmapImage::getRgbPixel(int x, int y) const
{
    if (x < 0 || x >= width || y < 0 || y >= height)
        return 0;
    const auto index = static_cast<std::size_t>(x) + static_cast<std::size_t>(width) * static_cast<std::size_t>(y);
    const bool isEvenColumn = x % 2 == 0;
    switch (format) {
    case Gray8:
        return PixelFormat::read<Gray8>(data, index, isEvenColumn);
    case Rgb332:
        return PixelFormat::read<Rgb332>(data, index, isEvenColumn);
    case Rgb444:
        return PixelFormat::read<Rgb444>(data, index, isEvenColumn);
    case Rgb565:
        return PixelFormat::read<Rgb565>(data, index, isEvenColumn);
    case Rgb888:
        return PixelFormat::read<Rgb888>(data, index, isEvenColumn);
    case Rgba8888:
        return PixelFormat::read<Rgba8888>(data, index, isEvenColumn);
    default:
        return 0;
    }
}

int BitmapImage::get1BitPixel(int x, int y) const
{
    if (x < 0 || x >= width || y < 0 || y >= height || format != Gray8)
        return 0;
    const auto index = static_cast<std::size_t>(x) + static_cast<std::size_t>(width) * static_cast<std::size_t>(y);
    return data[index] < threshold ? 1 : 0;
}

} // namespace Vantor
