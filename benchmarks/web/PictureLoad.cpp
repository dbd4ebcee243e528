// Draws on LCDs of 144 x 168 pixels as fast as it is told:
//   pictureLoad PANELS LCDS PICTURES-A-SECOND SECONDS [--wait]
// Each picture differs from the one before in every row, so that none is left out or cut. A
// picture whose time has come while the one before waits in the library takes its place; with
// --wait it is sent all the same, as fast as the bus takes them, so that the work is the same
// in every run. Prints a line when it begins, and how many were drawn.

#include "libMorvaneHostUsb/ClientLcdBitmap.h"
#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/UsbManager.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

using namespace Vantor;

namespace {

using Clock = std::chrono::steady_clock;
using Panels = std::vector<std::shared_ptr<UsbDevice>>;

constexpr unsigned char width = 144;
constexpr unsigned char height = 168;

struct Load {
    unsigned int panels;
    unsigned int lcds;
    double rate;
    double seconds;
    bool waits;
};

// Without one, nothing that comes in is looked at, device informations neither.
class Witness : public UsbManager::Observer {
    void onDeviceAdded(std::uint16_t /*uid*/) override {}
    void onDeviceRemoved(std::uint16_t /*uid*/) override {}
    void onParsedPacket(std::uint16_t /*uid*/, const PacketType& /*type*/, const DataPacketUnion& /*data*/,
                        unsigned int /*length*/) override
    {}
};

// All of them, when they have told their packet limits.
Panels awaitPanels(UsbManager& manager, unsigned int count)
{
    const auto deadline = Clock::now() + std::chrono::seconds(30);
    while (Clock::now() < deadline) {
        const auto list = manager.getDeviceListSafe();
        Panels ready;
        for (const auto& panel : list)
            if (panel->getDeviceInfo() != nullptr)
                ready.push_back(panel);
        if (ready.size() == count)
            return ready;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    std::fprintf(stderr, "pictureLoad: %u panels never came\n", count);
    std::exit(1);
}

// Stripes of 8 pixels that move.
void paint(ClientLcdBitmap& picture, std::uint64_t frame)
{
    for (std::size_t i = 0; i < picture.size(); ++i) {
        const std::uint64_t row = i / (width / 8);
        picture.data()[i] = static_cast<unsigned char>(0xF0U >> ((row + frame) % 8) | (i + frame) % 3);
    }
}

std::uint64_t draw(const Panels& panels, const Load& load)
{
    ClientLcdBitmap picture(width, height, 1);
    std::uint64_t drawn = 0;
    const auto start = Clock::now();
    const auto frames = static_cast<std::uint64_t>(load.rate * load.seconds);
    for (std::uint64_t frame = 0; frame < frames; ++frame) {
        paint(picture, frame);
        for (const auto& panel : panels)
            for (unsigned int lcd = 0; lcd < load.lcds; ++lcd) {
                picture.lcd = static_cast<std::uint16_t>(lcd);
                panel->getPacker().drawBitmapData(picture);
                ++drawn;
            }
        if (load.waits)
            for (const auto& panel : panels)
                while (panel->isAlive() && panel->getPacker().hasMoreData())
                    std::this_thread::sleep_for(std::chrono::microseconds(200));
        std::this_thread::sleep_until(start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
                                                  static_cast<double>(frame + 1) / load.rate)));
    }
    for (const auto& panel : panels)
        panel->sync(5);
    return drawn;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 5) {
        std::fputs("usage: pictureLoad PANELS LCDS PICTURES-A-SECOND SECONDS [--wait]\n", stderr);
        return 2;
    }
    const Load load{static_cast<unsigned int>(std::atoi(argv[1])), static_cast<unsigned int>(std::atoi(argv[2])),
                    std::atof(argv[3]), std::atof(argv[4]), argc > 5 && std::strcmp(argv[5], "--wait") == 0};
    setLogLevel(LogLevel::Error);
    UsbManager* const manager = UsbManager::getUsbManager();
    Witness witness;
    manager->registerObserver(&witness);
    manager->initialise();
    std::uint64_t drawn = 0;
    {
        const Panels panels = awaitPanels(*manager, load.panels);
        std::puts("drawing");
        std::fflush(stdout);
        drawn = draw(panels, load);
    }
    UsbManager::destroyUsbManager();
    std::printf("%llu\n", static_cast<unsigned long long>(drawn));
}
