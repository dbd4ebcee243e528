#pragma once

#include "libMorvaneHostUsb/UsbManager.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace Vantor::Test {

// Writes down what it is told, one line a call: "added 104", "removed 104",
// "begin 104 14 bytes", "parsed 104 type 5: 61 62 63", "end 104".
//
// Threads: every operation from any thread. The hooks are set before the calls come.
class RecordingObserver : public UsbManager::Observer {
public:
    void onDeviceAdded(std::uint16_t uid) override;
    void onDeviceRemoved(std::uint16_t uid) override;
    void onReserved(std::uint16_t uid) override;
    void onMessageBegin(std::uint16_t deviceId, const UsbMessage& message) override;
    void onMessageEnd(std::uint16_t deviceId) override;
    void onParsedPacket(std::uint16_t deviceId, const PacketType& type, const DataPacketUnion& data,
                        unsigned int length) override;

    std::vector<std::string> take();

    // Blocks until that many messages have ended since the last wait.
    void waitForMessages(std::size_t count);

    // The name of the thread that made a call of this kind ("added", "parsed" ...).
    std::string threadOf(const std::string& kind);

    // Called on the calling thread, after the line is written.
    std::function<void(std::uint16_t)> whenAdded;
    std::function<void(std::uint16_t)> whenRemoved;
    std::function<void(std::uint16_t, const UsbMessage&)> whenBegun;
    std::function<void(std::uint16_t)> whenParsed;

private:
    void write(const std::string& kind, const std::string& rest);

    std::mutex m_mutex;
    std::condition_variable m_ended;
    std::vector<std::string> m_lines;
    std::map<std::string, std::string> m_threads;
    std::size_t m_messages = 0;
};

} // namespace Vantor::Test
