// The library's messages for systemd's journal, with their priorities: what a service writes
// to standard error goes there, and "<3>" in front of a line is its priority.

#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/UsbManager.h"

#include <chrono>
#include <string>
#include <string_view>
#include <thread>

#include <unistd.h>

using namespace Vantor;

namespace {

// As in syslog: 3 error, 6 informational, 7 debug.
char priorityOf(LogLevel::Level level)
{
    switch (level) {
    case LogLevel::Error:
        return '3';
    case LogLevel::Info:
        return '6';
    default:
        return '7';
    }
}

// Called with a lock of the library held: one line, one write, and back. The journal reads on
// its own; where the reader may stall, put a queue between, as LogQueue.cpp does.
void writeToJournal(LogLevel::Level level, std::string_view text)
{
    std::string line{'<', priorityOf(level), '>'};
    line.append(text).append("\n");
    if (write(STDERR_FILENO, line.data(), line.size()) < 0) {
        // Nobody is left to tell.
    }
}

} // namespace

int main()
{
    setLogSink(writeToJournal);
    setLogLevel(LogLevel::Info); // or Detail, which journalctl -p info leaves out again

    UsbManager* const manager = UsbManager::getUsbManager();
    manager->initialise();
    std::this_thread::sleep_for(std::chrono::seconds(1)); // the service's work
    UsbManager::destroyUsbManager();
    setLogSink(nullptr);
    return 0;
}
