#pragma once

#include "libMorvaneHostUsb/BitmapImage.h"

namespace Vantor {

// LcdHelper's copy of an image into another, clipped and converted.
void copyImage(BitmapImage& target, const BitmapImage& source, int x, int y);

} // namespace Vantor
