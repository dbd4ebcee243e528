// Draws one picture on two LCDs of the first panel, as packed pixels and as run-length
// words: a dithered grey gradient with dark blocks on it, and a label on top.

#include "libMorvaneHostUsb/LcdHelper.h"
#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/UsbManager.h"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <vector>

using namespace Vantor;

namespace {

constexpr std::size_t width = TransLcdBitmap::width;
constexpr std::size_t height = TransLcdBitmap::height;
constexpr int mid = 128;

// From black at the top to white at the bottom.
std::vector<unsigned char> makeGradient()
{
    std::vector<unsigned char> grey;
    for (std::size_t row = 0; row < height; ++row)
        grey.insert(grey.end(), width, static_cast<unsigned char>(255 * row / (height - 1)));
    return grey;
}

// One bit a pixel: the dithered gradient, and three bars where lines of text would stand.
TransLcdBitmap makePicture()
{
    std::vector<unsigned char> grey = makeGradient();
    LcdHelper::ditherImage(grey.data(), width, height, LcdHelper::FloydSteinberg, mid);
    TransLcdBitmap picture{};
    LcdHelper::compositeToLcd(&picture, grey.data(), width, height, 0, 0, mid);
    const std::vector<unsigned char> bar(800, 0); // 100 × 8
    for (const int row : {100, 116, 132})
        LcdHelper::compositeToLcd(&picture, bar.data(), 100, 8, 16, row, mid);
    return picture;
}

// TransLcdBitmap keeps its pixels as a layer does: rows of 144 bits, which are whole bytes.
ClientLcdBitmap makeRawLayer(const TransLcdBitmap& picture)
{
    ClientLcdBitmap layer(width, height, 1);
    std::memcpy(layer.data(), picture.data, sizeof picture.data);
    return layer;
}

// The same as a picture of one value a pixel. A layer's buffer is made for packed pixels,
// and run-length words need more: at worst one for each pixel and each row.
ClientLcdBitmap makeEncodedLayer(const TransLcdBitmap& picture)
{
    std::vector<unsigned int> pixels;
    for (std::size_t i = 0; i < width * height; ++i)
        pixels.push_back(picture.data[i / 8] >> (7 - i % 8) & 1);
    ClientLcdBitmap layer(width, height, 1);
    layer.buffer.resize(4 * (width + 1) * height);
    PriorityPacker::compressImage(pixels.data(), width, height, 0, 0, layer);
    layer.encoded = 1;
    return layer;
}

void draw(PriorityPacker& packer)
{
    const TransLcdBitmap picture = makePicture();
    // lcd.md shows the lines from here
    ClientLcdBitmap raw = makeRawLayer(picture);
    raw.lcd = 0;
    ClientLcdBitmap encoded = makeEncodedLayer(picture);
    encoded.lcd = 1;
    ClientLcdBitmap label(48, 12, 1); // white
    label.x = 48;
    label.y = 20;

    // Held back until both layers are there, so that no half picture shows.
    packer.lockLcd(0);
    packer.drawBitmapData(raw);
    packer.drawBitmapData(label);
    packer.unlockLcd(0);
    packer.drawBitmapData(encoded);
    // to here.
    std::printf("LCD 0: %zu bytes of pixels and a label, LCD 1: %u bytes of run-length words\n", raw.size(),
                encoded.encodedSize);
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
        draw(packer);
        panels.front()->sync(5); // some seconds at most
        isTaken = !packer.hasMoreData();
    }
    UsbManager::destroyUsbManager(); // lets a transfer that is under way end

    if (!isTaken)
        std::puts(panels.empty() ? "no panel is attached" : "the panel does not take the picture");
    return isTaken ? 0 : 1;
}
