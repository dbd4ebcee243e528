#pragma once

#include <cstdint>
#include <memory>

namespace Vantor {

class DeviceCounters;

// One received buffer and the panel it came from. Owned by exactly one
// std::unique_ptr at a time; moved, never copied.
//
// Threads: none of its own. The observer sees it by const reference, on the
// receive thread, during onMessageBegin.
class UsbMessage {
public:
    // `length` uninitialised bytes; `deviceUid` is cut to 16 bits.
    UsbMessage(unsigned int deviceUid, unsigned short length)
        : id(static_cast<std::uint16_t>(deviceUid)), size(length),
          data(length != 0 ? new std::uint8_t[length] : nullptr)
    {}

    ~UsbMessage() { delete[] data; }

    UsbMessage(const UsbMessage&) = delete;
    UsbMessage& operator=(const UsbMessage&) = delete;

    std::uint16_t id;   // uid of the panel that sent it
    std::uint16_t size; // bytes in data
    std::uint8_t* data; // owned; null when size is 0

    std::shared_ptr<DeviceCounters> counters; // the library's own: of the device that received it
};

} // namespace Vantor
