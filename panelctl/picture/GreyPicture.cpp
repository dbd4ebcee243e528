#include "panelctl/picture/GreyPicture.h"

#include <algorithm>
#include <utility>

namespace Vantor {

namespace {

// The pixels of a line of `from` that pixel `position` of a line of `to` covers, when
// both are equally long. A pixel of `from` is `to` units long, one of `to` is `from`.
class Cover {
public:
    Cover(unsigned int from, unsigned int to, unsigned int position)
        : m_to(to), m_start(std::uint64_t{position} * from), m_end(m_start + from)
    {}

    unsigned int getFirst() const { return static_cast<unsigned int>(m_start / m_to); }
    unsigned int getEnd() const { return static_cast<unsigned int>((m_end + m_to - 1) / m_to); }

    // Units of it in pixel `index`; all of them together are `from`.
    std::uint64_t getShare(unsigned int index) const
    {
        const std::uint64_t start = std::uint64_t{index} * m_to;
        return std::min(m_end, start + m_to) - std::max(m_start, start);
    }

private:
    std::uint64_t m_to;
    std::uint64_t m_start;
    std::uint64_t m_end;
};

std::uint8_t meanOf(const GreyPicture& picture, const Cover& columns, const Cover& rows)
{
    std::uint64_t sum = 0;
    for (unsigned int y = rows.getFirst(); y < rows.getEnd(); ++y) {
        std::uint64_t line = 0;
        for (unsigned int x = columns.getFirst(); x < columns.getEnd(); ++x)
            line += columns.getShare(x) * picture.get(x, y);
        sum += line * rows.getShare(y);
    }
    const std::uint64_t area = std::uint64_t{picture.getWidth()} * picture.getHeight();
    return static_cast<std::uint8_t>((sum + area / 2) / area);
}

// length × numerator / denominator, rounded half up, at least 1.
unsigned int scale(unsigned int length, unsigned int numerator, unsigned int denominator)
{
    const std::uint64_t doubled = std::uint64_t{2} * length * numerator + denominator;
    return std::max(1U, static_cast<unsigned int>(doubled / (std::uint64_t{2} * denominator)));
}

} // namespace

GreyPicture::GreyPicture(unsigned int width, unsigned int height, std::uint8_t shade)
    : m_width(width), m_height(height), m_pixels(std::size_t{width} * height, shade)
{}

GreyPicture::GreyPicture(unsigned int width, unsigned int height, std::vector<std::uint8_t> pixels)
    : m_width(width), m_height(height), m_pixels(std::move(pixels))
{}

GreyPicture GreyPicture::scaledInto(unsigned int width, unsigned int height) const
{
    if (m_width == 0 || m_height == 0)
        return {0, 0};
    const bool isWide = std::uint64_t{m_width} * height >= std::uint64_t{m_height} * width;
    GreyPicture scaled(isWide ? width : scale(m_width, height, m_height),
                       isWide ? scale(m_height, width, m_width) : height);
    for (unsigned int y = 0; y < scaled.m_height; ++y)
        for (unsigned int x = 0; x < scaled.m_width; ++x)
            scaled.set(x, y, meanOf(*this, Cover(m_width, scaled.m_width, x), Cover(m_height, scaled.m_height, y)));
    return scaled;
}

GreyPicture GreyPicture::centredOn(unsigned int width, unsigned int height, std::uint8_t shade) const
{
    GreyPicture whole(width, height, shade);
    const unsigned int left = (width - m_width) / 2;
    const unsigned int top = (height - m_height) / 2;
    for (unsigned int y = 0; y < m_height; ++y)
        for (unsigned int x = 0; x < m_width; ++x)
            whole.set(left + x, top + y, get(x, y));
    return whole;
}

void GreyPicture::invert()
{
    for (std::uint8_t& pixel : m_pixels)
        pixel = static_cast<std::uint8_t>(white - pixel);
}

void GreyPicture::dither(LcdHelper::DitherType type, int threshold)
{
    LcdHelper::ditherImage(m_pixels.data(), static_cast<int>(m_width), static_cast<int>(m_height), type, threshold);
}

std::vector<ClientLcdBitmap> GreyPicture::makeLayers(std::uint16_t lcd, unsigned int x, unsigned int y,
                                                     LcdPicture::Form form) const
{
    LcdPicture picture(m_pixels.data(), m_width, m_height, BitmapImage::Gray8);
    picture.dither = LcdHelper::Threshold;
    picture.form = form;
    return picture.makeLayers(lcd, x, y);
}

} // namespace Vantor
