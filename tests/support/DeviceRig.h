#pragma once

#include "tests/support/LinkRig.h"

#include "libMorvaneHostUsb/UsbDevice.h"
#include "libMorvaneHostUsb/UsbMessageQueue.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

namespace Vantor::Test {

// One panel without a manager: completions go straight to the device, and the rig holds
// the reference on the panel that a manager would.
class DeviceRig : public LinkRig {
public:
    // A device on a panel of its own at bus 1, port 4: uid 0x104, id 0.
    DeviceRig();
    ~DeviceRig();

    // What the device prints and asks for at the start is not taken down.
    void open();

    std::unique_ptr<UsbDevice> make(const FakeLibusb::Panel& panel);

    // Runs what waits for event handling.
    void deliver();

    // Ends what is in flight, and delivers it.
    void finishSend(int status, int actualLength);
    void finishSend(); // whole
    void finishRead(int status, int actualLength);

    // Delivers what has come, then polls at the virtual time.
    void poll();
    void poll(std::chrono::nanoseconds later);

    // Records go out as they are added, so the last one names the packet.
    void add(std::uint8_t type, const Bytes& payload);

    std::vector<FakeLibusb::Submission> sends();
    std::vector<FakeLibusb::Submission> reads();

    libusb_context* context;
    std::shared_ptr<UsbMessageQueue> queue;
    libusb_device* panel;
    std::unique_ptr<UsbDevice> device;
};

} // namespace Vantor::Test
