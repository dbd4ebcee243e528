// Blocks of code that documents show and no example has: compiled, never run.

#include "libMorvaneHostUsb/BitmapImage.h"
#include "libMorvaneHostUsb/ClientLcdBitmap.h"
#include "libMorvaneHostUsb/LcdHelper.h"
#include "libMorvaneHostUsb/LcdPicture.h"
#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/PriorityPacker.h"
#include "libMorvaneHostUsb/UsbDevice.h"
#include "protocol/PacketType.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

using namespace Vantor;

namespace {

struct Queue {
    void add(LogLevel::Level level, const std::string& text) { std::printf("%d %s", level, text.c_str()); }
};

[[maybe_unused]] void addRecords(PriorityPacker& packer, const std::uint32_t& colour, std::uint8_t key,
                                 unsigned int lampNumber)
{
    // docs/using.md
    const PacketType lamp = static_cast<PacketType>(5);                  // the application's own types
    packer.addStructData(&colour, sizeof colour, lamp, lampNumber);      // only the latest colour matters
    packer.addStructData(&key, sizeof key, static_cast<PacketType>(12)); // each one counts
}

[[maybe_unused]] void draw(PriorityPacker& packer, const std::uint8_t* pixels, std::uint16_t lcd, unsigned int x,
                           unsigned int y)
{
    // docs/lcd.md
    for (const ClientLcdBitmap& layer : LcdPicture(pixels, 144, 168, BitmapImage::Rgb888).makeLayers(lcd, x, y))
        packer.drawBitmapData(layer);
}

[[maybe_unused]] void compose(const BitmapImage& source)
{
    // docs/lcd.md, too
    ClientLcdBitmap layer(64, 48, 16);
    BitmapImage target{layer.data(), 64, 48, BitmapImage::Rgb565, 0};
    LcdHelper::compositeToLcd(&target, source, 0, 0);
}

[[maybe_unused]] void observe(const std::shared_ptr<UsbDevice>& device, Queue& queue)
{
    // docs/observing.md
    setLogSink([&queue](LogLevel::Level level, std::string_view text) { queue.add(level, std::string(text)); });
    setLogSink(nullptr); // removed: standard output again

    const DeviceStatistics statistics = device->getStatistics(); // a copy, from any thread

    if (!device->isAlive())
        std::puts(device->getFailure().toString().c_str()); // "claim: LIBUSB_ERROR_BUSY"
    static_cast<void>(statistics);
}

[[maybe_unused]] void retire(const std::shared_ptr<UsbDevice>& device, std::mutex& m_mutex)
{
    // docs/internals/threads.md, which says what is wrong with it
    std::lock_guard lock(m_mutex);
    device->markDead();
    device->cleanup(); // libusb_close
}

} // namespace
