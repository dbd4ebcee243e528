#include "libMorvaneHostUsb/ClientLcdBitmap.h"

namespace Vantor {

ClientLcdBitmap::ClientLcdBitmap(unsigned char columns, unsigned char rows, unsigned char depth)
    : lcd(0), x(0), y(0), width(columns), height(rows), bitsPerPixel(depth), encoded(0), encodedSize(0),
      buffer(static_cast<std::size_t>((depth * columns * rows + 7) / 8)), byteOffset(0), rowOffset(0), complete(0)
{}

ClientLcdBitmap::ClientLcdBitmap(const ClientLcdBitmap& other)
    : lcd(other.lcd), x(other.x), y(other.y), width(other.width), height(other.height),
      bitsPerPixel(other.bitsPerPixel), encoded(other.encoded), encodedSize(other.encodedSize), buffer(other.buffer),
      byteOffset(0), rowOffset(0), complete(0)
{}

ClientLcdBitmap& ClientLcdBitmap::operator=(const ClientLcdBitmap& other)
{
    if (this == &other)
        return *this;
    lcd = other.lcd;
    x = other.x;
    y = other.y;
    width = other.width;
    height = other.height;
    bitsPerPixel = other.bitsPerPixel;
    encoded = other.encoded;
    encodedSize = other.encodedSize;
    buffer = other.buffer;
    byteOffset = 0;
    rowOffset = 0;
    complete = 0;
    return *this;
}

ClientLcdBitmap::~ClientLcdBitmap() = default;

unsigned char* ClientLcdBitmap::data()
{
    return buffer.data();
}

const unsigned char* ClientLcdBitmap::data() const
{
    return buffer.data();
}

std::size_t ClientLcdBitmap::size() const
{
    return buffer.size();
}

} // namespace Vantor
