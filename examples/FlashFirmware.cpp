// Writes firmware to the first panel: FlashFirmware MAIN-IMAGE [SERVO-IMAGE]

#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/UsbManager.h"
#include "protocol/FirmwareData.h"
#include "protocol/PacketHeader.h"
#include "protocol/ReqDeviceInfo.h"
#include "wire/RecordHeader.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
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
    void onDeviceRemoved(std::uint16_t uid) override { m_lastGone = uid; }
    void onParsedPacket(std::uint16_t, const PacketType&, const DataPacketUnion&, unsigned int) override {}

    bool hasGone(const UsbDevice& panel) const { return m_lastGone == panel.getUid(); }

private:
    std::atomic<std::uint32_t> m_lastGone{0x10000}; // beyond all uids
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

// A file that can't be read would count as no image, with a log line only.
std::uintmax_t sizeOf(const std::string& path)
{
    std::error_code error;
    const bool isFile = std::filesystem::is_regular_file(path, error);
    std::uintmax_t size = isFile ? std::filesystem::file_size(path, error) : 0;
    if (error)
        size = 0;
    if (size == 0)
        std::printf("'%s' is no firmware image\n", path.c_str());
    return size;
}

// docs/firmware.md shows the lines from here
// Why the panel does not hold the images, or null. An upgrade can't be stopped, only left.
const char* flash(UsbDevice& panel, const Receiver& receiver, const std::string& main, const std::string& servo,
                  std::uintmax_t size)
{
    if (panel.isUpdating())
        return "is being written already"; // another start would be refused, with a log line only

    // The callback owns what it writes to, and not the device: it outlives this function.
    const auto written = std::make_shared<std::atomic<std::uint32_t>>(0);
    panel.startFirmwareUpgrade(main, servo, [written](const UsbDevice::FirmwareProgress& progress) {
        if (progress.totalBytes == 0)
            return; // no image at all, or a reply that came after the end
        *written = progress.bytesWritten;
        std::printf("%u of %u bytes\n", progress.bytesWritten, progress.totalBytes);
    });

    std::uint32_t seen = 0;
    Clock::time_point lastProgress = Clock::now();
    while (panel.isUpdating()) {
        std::this_thread::sleep_for(step);
        if (receiver.hasGone(panel))
            return "has gone: plug it in and start again";
        if (seen != *written) {
            seen = *written;
            lastProgress = Clock::now();
        } else if (Clock::now() - lastProgress > patience) {
            return "has stopped answering: re-plug it and start again";
        }
    }
    return *written == size ? nullptr : "has not confirmed everything: start again";
}
// to here.

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2 && argc != 3) {
        std::puts("usage: FlashFirmware MAIN-IMAGE [SERVO-IMAGE]");
        return 2;
    }
    const std::string main = argv[1];
    const std::string servo = argc == 3 ? argv[2] : ""; // no image: that MCU is left alone
    const std::uintmax_t mainSize = sizeOf(main);
    const std::uintmax_t servoSize = servo.empty() ? 0 : sizeOf(servo);
    if (mainSize == 0 || (!servo.empty() && servoSize == 0))
        return 2;

    setLogLevel(LogLevel::Error);
    Receiver receiver;
    UsbManager* const manager = UsbManager::getUsbManager();
    manager->registerObserver(&receiver);
    manager->initialise();
    const char* problem = "is not attached";
    {
        const auto panels = manager->getDeviceListSafe();
        if (!panels.empty() && !takesChunks(*panels.front()))
            problem = "does not answer, or takes no packet as large as a chunk";
        else if (!panels.empty())
            problem = flash(*panels.front(), receiver, main, servo, mainSize + servoSize);
    }
    UsbManager::destroyUsbManager();
    if (problem == nullptr)
        std::puts("written");
    else
        std::printf("the panel %s\n", problem);
    return problem == nullptr ? 0 : 1;
}
