#pragma once

#include "libMorvaneHostUsb/Export.h"

namespace Vantor {

// A view of an image in memory, read as colours or as black and white.
//
// Threads: none of its own. Lifetime: the pixels are the caller's, must outlive the
// view, and must be as many bytes as width, height and format say: nothing is checked.
class MORVANE_API BitmapImage {
public:
    // How a pixel is stored. Pixel (x, y) has the index p = x + width × y. Other
    // values, 0 and 1 included, are reserved: they read as 0 and are never written.
    enum Format : int {
        Gray8 = 2,    // byte p
        Rgb332 = 3,   // byte p: RRRGGGBB
        Rgb444 = 4,   // 12 bits from byte p × 12 / 8 on
        Rgb565 = 5,   // little-endian word p: RRRRRGGG GGGBBBBB
        Rgb888 = 6,   // bytes 3p to 3p + 2: R, G, B
        Rgba8888 = 7, // bytes 4p to 4p + 3: R, G, B, A
    };

    // 0x00RRGGBB; 0 outside the image. A Gray8 pixel is the grey byte itself, not
    // expanded, so it lands in the blue channel; Rgba8888 is multiplied by its alpha.
    unsigned int getRgbPixel(int x, int y) const;

    // 1 for a Gray8 pixel below the threshold; 0 for any other, for every other
    // format and outside the image.
    int get1BitPixel(int x, int y) const;

    unsigned char* data; // rows top to bottom, without padding; not owned
    int width;           // pixels
    int height;
    int format;    // a Format
    int threshold; // grey level
};

} // namespace Vantor
