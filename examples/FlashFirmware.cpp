// Writes firmware to the first panel: FlashFirmware MAIN-IMAGE [SERVO-IMAGE]

#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/UsbManager.h"
#include "protocol/FirmwareData.h"
#include "protocol/PacketHeader.h"
#include "protocol/ReqDeviceInfo.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>

using namespace Vantor;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds step{50};
constexpr std::chrono::seconds patience{15}; // without progress

// The device information is parsed only when there is an observer.
class Receiver : public UsbManager::Observer {
public:
    void onDeviceAdded(std::uint16_t /*uid*/) override {}
    void onDeviceRemoved(std::uint16_t /*uid*/) override {}
    void onParsedPacket(std::uint16_t /*uid*/, const PacketType& /*type*/, const DataPacketUnion& /*data*/,
                        unsigned int /*length*/) override
    {}
};

// A chunk that does not fit the panel's packets would wait for ever, and the upgrade with it.
bool takesChunks(UsbDevice& panel)
{
    constexpr unsigned int needed = sizeof(PacketHeader) + sizeof(RecordHeader) + sizeof(FirmwareData);
    panel.getPacker().addData(ReqDeviceInfo{1});
    for (auto left = patience / step; left > 0 && panel.getDeviceInfo() == nullptr; --left)
        std::this_thread::sleep_for(step);
    return panel.getDeviceInfo() != nullptr && panel.getDeviceInfo()->maxPacketSize >= needed;
}

// docs/firmware.md shows the lines from here
// False when the panel has not acknowledged anything for too long; the upgrade
// can't be stopped then, only left.
bool flash(UsbDevice& panel, const std::string& mainPath, const std::string& servoPath)
{
    // The callback owns what it writes to, and not the device: it outlives this function.
    const auto written = std::make_shared<std::atomic<std::uint32_t>>(0);
    panel.startFirmwareUpgrade(mainPath, servoPath, [written](const UsbDevice::FirmwareProgress& progress) {
        if (progress.totalBytes == 0)
            return; // a reply that came after the end
        *written = progress.bytesWritten;
        std::printf("%u of %u bytes\n", progress.bytesWritten, progress.totalBytes);
    });

    std::uint32_t seen = 0;
    Clock::time_point lastProgress = Clock::now();
    while (panel.isUpdating()) {
        std::this_thread::sleep_for(step);
        if (seen != *written) {
            seen = *written;
            lastProgress = Clock::now();
        } else if (Clock::now() - lastProgress > patience) {
            return false;
        }
    }
    return true;
}
// to here.

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2 && argc != 3) {
        std::puts("usage: FlashFirmware MAIN-IMAGE [SERVO-IMAGE]");
        return 2;
    }
    setLogLevel(LogLevel::Error);
    Receiver receiver;
    UsbManager* const manager = UsbManager::getUsbManager();
    manager->registerObserver(&receiver);
    manager->initialise();
    const char* outcome = "no panel is attached";
    bool isWritten = false;
    {
        const auto panels = manager->getDeviceListSafe();
        if (!panels.empty() && !takesChunks(*panels.front())) {
            outcome = "the panel does not answer, or takes no packet as large as a chunk";
        } else if (!panels.empty()) {
            // An image that can't be read is an empty one: that MCU is left alone.
            isWritten = flash(*panels.front(), argv[1], argc == 3 ? argv[2] : "");
            outcome = isWritten ? "written" : "the panel has stopped answering: re-plug it and start again";
        }
    }
    UsbManager::destroyUsbManager();
    std::puts(outcome);
    return isWritten ? 0 : 1;
}
