#include "libMorvaneHostUsb/imaging/ImageCopy.h"

#include "libMorvaneHostUsb/imaging/PixelFormat.h"

#include <algorithm>
#include <cstdint>

namespace Vantor {

namespace {

struct Copy {
    BitmapImage& target;
    const BitmapImage& source;
    std::int64_t x;
    std::int64_t y;
};

// The rows or columns of the source that fall on the target.
struct Span {
    Span(std::int64_t position, int size, int limit)
        : begin(std::max<std::int64_t>(0, -position)), end(std::min<std::int64_t>(size, limit - position))
    {}

    std::int64_t begin;
    std::int64_t end;
};

// At four bytes a pixel; some formats take less.
bool mayOverlap(const BitmapImage& one, const BitmapImage& other)
{
    const auto begin = [](const BitmapImage& image) { return reinterpret_cast<std::uintptr_t>(image.data); };
    const auto size = [](const BitmapImage& image) {
        return 4 * static_cast<std::uint64_t>(image.width) * static_cast<std::uint64_t>(image.height);
    };
    return begin(one) < begin(other) + size(other) && begin(other) < begin(one) + size(one);
}

// A pixel of an image's memory, and the parity of its column.
struct Cursor {
    std::size_t index;
    bool isEven;

    void step()
    {
        ++index;
        isEven = !isEven;
    }
};

template <int from, int to> void copyPixel(unsigned char* target, Cursor& at, const unsigned char* source, Cursor& of)
{
    PixelFormat::write<to>(target, at.index, at.isEven, PixelFormat::read<from>(source, of.index, of.isEven));
    at.step();
    of.step();
}

// From an even column of the target on. With the parities constant, nothing is asked a pixel.
template <int from, int to, bool isEven>
void copyPairs(unsigned char* target, std::size_t at, const unsigned char* source, std::size_t of, std::int64_t count)
{
    for (; count > 0; --count) {
        const std::uint32_t first = PixelFormat::read<from>(source, of, isEven);
        const std::uint32_t second = PixelFormat::read<from>(source, of + 1, !isEven);
        PixelFormat::writePair<to>(target, at, first, second);
        at += 2;
        of += 2;
    }
}

// By value, all of it: what is written might be any of what is only referred to.
template <int from, int to>
void copyRowByPairs(unsigned char* target, Cursor at, const unsigned char* source, Cursor of, std::int64_t count)
{
    if constexpr (from == to && to == BitmapImage::Rgb565) { // spread and cut, a value is what it was
        for (std::size_t i = 0; i < 2 * static_cast<std::size_t>(count); ++i)
            target[2 * at.index + i] = source[2 * of.index + i];
        return;
    }
    if (!at.isEven) {
        copyPixel<from, to>(target, at, source, of);
        --count;
    }
    const auto copyAll = of.isEven ? copyPairs<from, to, true> : copyPairs<from, to, false>;
    copyAll(target, at.index, source, of.index, count / 2);
    if (count % 2 != 0) {
        at.index += static_cast<std::size_t>(count - 1);
        of.index += static_cast<std::size_t>(count - 1);
        copyPixel<from, to>(target, at, source, of);
    }
}

// Within one memory, where a pixel that is written may be one that is read later.
template <int from, int to>
void copyRowByPixel(unsigned char* target, Cursor at, const unsigned char* source, Cursor of, std::int64_t count)
{
    for (; count > 0; --count)
        copyPixel<from, to>(target, at, source, of);
}

template <int from, int to> void copyPixels(const Copy& copy)
{
    const Span columns(copy.x, copy.source.width, copy.target.width);
    const Span rows(copy.y, copy.source.height, copy.target.height);
    if (columns.begin >= columns.end)
        return;
    const auto copyRow = mayOverlap(copy.target, copy.source) ? copyRowByPixel<from, to> : copyRowByPairs<from, to>;
    for (std::int64_t row = rows.begin; row < rows.end; ++row) {
        const std::int64_t of = row * copy.source.width + columns.begin;
        const std::int64_t at = (copy.y + row) * copy.target.width + copy.x + columns.begin;
        copyRow(copy.target.data, {static_cast<std::size_t>(at), (copy.x + columns.begin) % 2 == 0}, copy.source.data,
                {static_cast<std::size_t>(of), columns.begin % 2 == 0}, columns.end - columns.begin);
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
