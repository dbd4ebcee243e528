#pragma once

#include "libMorvaneHostUsb/BitmapImage.h"
#include "libMorvaneHostUsb/ClientLcdBitmap.h"
#include "libMorvaneHostUsb/Export.h"
#include "libMorvaneHostUsb/LcdHelper.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Vantor {

// A picture in grey or colour, and how it is to be shown: from pixels to the layers that
// PriorityPacker::drawBitmapData takes. They are black and white, and sent without a bit
// lost, whatever the picture's width.
//
//     for (const ClientLcdBitmap& layer : LcdPicture(pixels, 144, 168, BitmapImage::Rgb888).makeLayers(lcd))
//         packer.drawBitmapData(layer);
//
// Threads: stateless; any thread, on pixels and members that none changes meanwhile.
// Lifetime: the pixels are the caller's, and needed during a call alone.
class MORVANE_API LcdPicture {
public:
    enum class Form {
        Raw,       // packed pixels: small, and they share packets with what else is sent
        RunLength, // smaller where a row has few changes; see docs/lcd.md for the price
        Smaller,   // whichever of the two has fewer bytes; of equal ones Raw
    };

    // Gray8, Rgb332, Rgb565, Rgb888 or Rgba8888, where what is transparent lies on white.
    // `pixels` holds `height` rows of `width` pixels, without padding unless stride is set.
    LcdPicture(const unsigned char* data, unsigned int columns, unsigned int rows, BitmapImage::Format pixelFormat);

    // One byte a pixel, rows without padding, neither inverted nor dithered: a colour is
    // (299 R + 587 G + 114 B + 500) / 1000. Pictures of any size. Empty, with a log line
    // at Error, if there are no pixels, no such format, or a stride shorter than a row.
    std::vector<unsigned char> toGrey() const;

    // The picture with its top left pixel at column x, row y of the LCD, both from 0 on:
    // grey, inverted, dithered, packed. 1 to 255 pixels a side; the last row at most 255;
    // columns beyond the LCD's are clipped by the panel. Draw all layers, in their order.
    //
    // A raw picture whose width is not a multiple of 8 gets a second layer, of its last 8
    // columns, as only rows of whole bytes arrive whole. Where that can't be, in a picture
    // narrower than 8 or with those columns beyond 255, it is run-length words all the same.
    //
    // A row of run-length words takes 4 × (changes of shade + 2) + 19 bytes of a packet: one
    // of more than 249 changes is too long for panels that take 1,025 to 1,042.
    //
    // Empty, with a log line at Error, where toGrey is, or the picture does not fit.
    std::vector<ClientLcdBitmap> makeLayers(std::uint16_t lcd, unsigned int x = 0, unsigned int y = 0) const;

    const unsigned char* pixels;
    unsigned int width;
    unsigned int height;
    BitmapImage::Format format;
    std::size_t stride; // bytes from a row to the next; 0: no padding

    LcdHelper::DitherType dither; // Stucki, for photographs; Threshold keeps drawings and text sharp
    int threshold;                // 128: greys below it are black; a black pixel is one that is on
    bool isInverted;              // white for black, before the dithering
    Form form;                    // Raw
};

} // namespace Vantor
