// Prints what comes from all panels, until Ctrl-C.

#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/UsbManager.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <mutex>

#include <unistd.h>

using namespace Vantor;

namespace {

class Monitor : public UsbManager::Observer {
public:
    // These two come from the worker thread, what follows from the receive thread.
    void onDeviceAdded(std::uint16_t uid) override { print("panel has come", uid); }
    void onDeviceRemoved(std::uint16_t uid) override { print("panel has gone", uid); }

    // `data` is the library's: payloadOf(data) may be read up to `length` bytes, during the call.
    void onParsedPacket(std::uint16_t uid, const PacketType& type, const DataPacketUnion& data,
                        unsigned int length) override
    {
        constexpr unsigned int shown = 16;
        const std::lock_guard<std::mutex> lock(s_logMutex); // keeps this line apart from the library's
        std::printf("%04x  type %d, %u bytes:", uid, static_cast<int>(type), length);
        for (unsigned int i = 0; i < length && i < shown; ++i)
            std::printf(" %02x", payloadOf(data)[i]);
        std::puts(length > shown ? " ..." : "");
    }

private:
    static void print(const char* text, std::uint16_t uid)
    {
        const std::lock_guard<std::mutex> lock(s_logMutex);
        std::printf("%04x  %s\n", uid, text);
    }
};

// A signal may interrupt any thread, so its handler only writes to a pipe.
std::array<int, 2> s_interrupt{-1, -1};

extern "C" void onInterrupt(int /*signal*/)
{
    const int savedError = errno;
    const char byte = 0;
    if (write(s_interrupt[1], &byte, sizeof byte) < 0)
        _exit(1);
    errno = savedError;
}

void waitForInterrupt()
{
    char byte = 0;
    while (read(s_interrupt[0], &byte, sizeof byte) < 0 && errno == EINTR) {
    }
}

} // namespace

int main()
{
    if (pipe(s_interrupt.data()) != 0)
        return 1;
    std::signal(SIGINT, onInterrupt);
    std::signal(SIGTERM, onInterrupt);
    setLogLevel(LogLevel::Error);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ); // each line at once, into a pipe too

    Monitor monitor;
    UsbManager* const manager = UsbManager::getUsbManager();
    manager->registerObserver(&monitor);
    manager->initialise();
    waitForInterrupt();
    UsbManager::destroyUsbManager();
    return 0;
}
