#pragma once

#include "libMorvaneHostUsb/Export.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Vantor {

// A rectangle of pixels for one LCD of a panel, with the cursor that remembers
// how much of it has been packed.
//
// Threads: none of its own. Lifetime: PriorityPacker stores copies, so the
// application's object is free after drawBitmapData.
class MORVANE_API ClientLcdBitmap {
public:
    // Sets width, height and bitsPerPixel, with a zeroed buffer of
    // (depth × columns × rows + 7) / 8 bytes; everything else is 0.
    ClientLcdBitmap(unsigned char columns, unsigned char rows, unsigned char depth);

    // Copy the picture, not the cursor: every copy is sent from its first row.
    ClientLcdBitmap(const ClientLcdBitmap& other);
    ClientLcdBitmap& operator=(const ClientLcdBitmap& other);
    ~ClientLcdBitmap();

    unsigned char* data();
    const unsigned char* data() const;
    std::size_t size() const; // bytes in the buffer

    std::uint16_t lcd;
    std::uint8_t x; // left column on the LCD
    std::uint8_t y; // top row on the LCD
    std::uint8_t width;
    std::uint8_t height;
    std::uint8_t bitsPerPixel;
    std::uint8_t encoded;      // non-zero: buffer holds run-length words; set by the application
    std::uint32_t encodedSize; // bytes of run-length words in buffer
    std::vector<unsigned char> buffer;

    // The packer advances the cursor of a layer it only reads otherwise.
    mutable std::uint32_t byteOffset; // next byte of buffer to send
    mutable std::uint8_t rowOffset;   // first row not yet sent, never above height
    mutable std::uint8_t complete;    // the last slice has been packed
};

} // namespace Vantor
