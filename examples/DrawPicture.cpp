// Draws one picture on two LCDs of the first panel, as packed pixels and as run-length
// words: a dithered grey gradient, and bars and a label that lie on top.

#include "libMorvaneHostUsb/LcdPicture.h"
#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/UsbManager.h"

#include <cstdio>
#include <vector>

using namespace Vantor;

namespace {

constexpr unsigned int width = 144;
constexpr unsigned int height = 168;

// From black at the top to white at the bottom.
std::vector<unsigned char> makeGradient()
{
    std::vector<unsigned char> grey;
    for (unsigned int row = 0; row < height; ++row)
        grey.insert(grey.end(), width, static_cast<unsigned char>(255 * row / (height - 1)));
    return grey;
}

void draw(PriorityPacker& packer, const LcdPicture& picture, std::uint16_t lcd, unsigned int x, unsigned int y)
{
    for (const ClientLcdBitmap& layer : picture.makeLayers(lcd, x, y))
        packer.drawBitmapData(layer);
}

void drawAll(PriorityPacker& packer)
{
    const std::vector<unsigned char> grey = makeGradient();
    const std::vector<unsigned char> black(800, 0);
    // lcd.md shows the lines from here
    LcdPicture gradient(grey.data(), width, height, BitmapImage::Gray8);
    LcdPicture bar(black.data(), 100, 8, BitmapImage::Gray8);
    bar.dither = LcdHelper::Threshold; // a drawing
    ClientLcdBitmap label(48, 12, 1);  // white
    label.x = 48;
    label.y = 20;

    // Held back until all layers are there, so that no half picture shows.
    packer.lockLcd(0);
    draw(packer, gradient, 0, 0, 0); // each of the layers that makeLayers(lcd, x, y) returns
    for (const unsigned int row : {100U, 116U, 132U})
        draw(packer, bar, 0, 16, row);
    packer.drawBitmapData(label);
    packer.unlockLcd(0);

    gradient.form = LcdPicture::Form::RunLength;
    draw(packer, gradient, 1, 0, 0);
    // to here.
}

} // namespace

int main()
{
    setLogLevel(LogLevel::Error);
    UsbManager* const manager = UsbManager::getUsbManager();
    manager->initialise(); // opens the panels that are attached
    const auto panels = manager->getDeviceListSafe();
    bool isTaken = false;
    if (!panels.empty()) {
        PriorityPacker& packer = panels.front()->getPacker();
        drawAll(packer);
        panels.front()->sync(5); // some seconds at most
        isTaken = !packer.hasMoreData();
    }
    UsbManager::destroyUsbManager(); // lets a transfer that is under way end

    if (!isTaken)
        std::puts(panels.empty() ? "no panel is attached" : "the panel does not take the picture");
    return isTaken ? 0 : 1;
}
