#pragma once

#include "libMorvaneHostUsb/BitmapImage.h"
#include "libMorvaneHostUsb/Export.h"
#include "protocol/LcdBitmap.h"
#include "protocol/TransLcdBitmap.h"

namespace Vantor {

// Turns grey images into the 1-bit buffers of a panel's LCDs. Grey images are one
// byte a pixel, 0 black, rows top to bottom without padding.
//
// Threads: stateless; any thread, on memory that no other thread uses meanwhile.
// Every function works in place on the caller's memory, which must be as large as
// the geometry says; nothing is allocated and nothing can fail.
class MORVANE_API LcdHelper {
public:
    enum DitherType : int {
        Threshold = 0, // no diffusion; so does every value not listed
        Atkinson = 1,
        FloydSteinberg = 2,
        Stucki = 3, // with first-row weights of its own, 1/6 and 5/42
    };

    // Adds `delta` to a grey pixel: below 0 becomes 0, above 255 wraps. Row 0 and
    // column 0 never receive anything, nor does what lies outside the image.
    static void addPixel(unsigned char* image, int x, int y, int width, int height, int delta);

    // Makes every pixel 0 (below the threshold) or 255, and passes the error on to
    // pixels not yet visited: rows top to bottom, each left to right. Nothing happens
    // when width or height is below 1.
    static void ditherImage(unsigned char* image, int width, int height, DitherType type, int threshold);

    // Sets the LCD's pixel (x + c, y + r) for every grey pixel (c, r) below the
    // threshold. Pixels are only ever set, so clear the buffer first. What falls
    // outside the LCD, negative positions included, is clipped.

    // A buffer of lcdHeight / 8 pages, rounded up, of lcdWidth bytes, laid out as
    // LcdBitmap::data.
    static void compositeToLcd(unsigned char* lcd, const unsigned char* image, unsigned int imageWidth,
                               unsigned int imageHeight, unsigned int lcdWidth, unsigned int lcdHeight, int x, int y,
                               int threshold);
    static void compositeToLcd(LcdBitmap* lcd, const unsigned char* image, unsigned int imageWidth,
                               unsigned int imageHeight, int x, int y, int threshold);
    static void compositeToLcd(TransLcdBitmap* lcd, const unsigned char* image, unsigned int imageWidth,
                               unsigned int imageHeight, int x, int y, int threshold);

    // Copies an image into another at (x, y), without blending, converting to Rgb565, Rgb888 or Rgb444
    // and clipping; a target of another format is left unchanged. The byte index in an
    // Rgb888 target is cut to 16 bits: pixels from byte 65,536 on land at its start.
    static void compositeToLcd(BitmapImage* target, const BitmapImage& source, int x, int y);
};

} // namespace Vantor
