#pragma once

#include "tests/support/LinkRig.h"
#include "tests/support/RecordingObserver.h"

#include "libMorvaneHostUsb/UsbManager.h"

#include <chrono>

namespace Vantor::Test {

inline FakeLibusb::Panel panelAt(std::uint8_t port)
{
    FakeLibusb::Panel panel;
    panel.port = port;
    panel.ports = {port};
    return panel;
}

// The manager on the scripted libusb. Its worker is parked whenever the test's thread
// has the turn, and its receive thread waits for a message.
class ManagerRig : public LinkRig {
public:
    ManagerRig() = default;

    // Shuts the manager down, if the test has not.
    ~ManagerRig();

    // The manager, with the observer registered and running.
    void start();
    UsbManager& create();
    void initialise();
    void stop();

    // Plugs a panel in and lets the worker take it up: it is announced and read from.
    libusb_device* arrive(const FakeLibusb::Panel& panel = {});

    // Lets the buffer come in and waits until it is dispatched.
    void receive(libusb_device* panel, const Bytes& bytes);

    // From another thread than the worker, which delivers what comes back meanwhile. Every
    // read of the steady clock takes `tick`.
    void closeAllDevices(std::chrono::nanoseconds tick = std::chrono::milliseconds(3));

    UsbManager* manager = nullptr;
    RecordingObserver observer;

private:
    bool m_running = false;
};

} // namespace Vantor::Test
