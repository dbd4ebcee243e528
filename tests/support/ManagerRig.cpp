#include "tests/support/ManagerRig.h"

#include <thread>

namespace Vantor::Test {

ManagerRig::~ManagerRig()
{
    usb.dropCallHooks(); // what they refer to may be gone
    stop();
}

UsbManager& ManagerRig::create()
{
    manager = UsbManager::getUsbManager();
    return *manager;
}

void ManagerRig::initialise()
{
    manager->initialise();
    m_running = true;
    usb.waitParked();
    VirtualClock::waitForPolling();
}

void ManagerRig::start()
{
    create().registerObserver(&observer);
    initialise();
    usb.takeTrace();
}

// One that never ran cannot be destroyed.
void ManagerRig::stop()
{
    if (manager == nullptr)
        return;
    if (!m_running)
        manager->initialise();
    UsbManager::destroyUsbManager();
    manager = nullptr;
    m_running = false;
}

libusb_device* ManagerRig::arrive(const FakeLibusb::Panel& panel)
{
    libusb_device* const device = usb.plug(panel);
    usb.pass();
    return device;
}

void ManagerRig::receive(libusb_device* panel, const Bytes& bytes)
{
    usb.receive(panel, bytes);
    usb.pass();
    observer.waitForMessages(1);
    VirtualClock::waitForPolling();
}

void ManagerRig::closeAllDevices(std::chrono::nanoseconds tick)
{
    // The worker keeps up at every other cancel, of the read, where the caller holds no lock.
    VirtualClock::tickPerSteadyRead(tick);
    usb.setFreeRunning(true);
    usb.onCall("cancel_transfer", [this, caller = std::this_thread::get_id(), isRead = false]() mutable {
        if (std::this_thread::get_id() == caller && (isRead = !isRead))
            usb.settle();
    });
    manager->closeAllDevices();
    usb.onCall("cancel_transfer", nullptr);
    usb.settle();
    usb.setFreeRunning(false);
    VirtualClock::tickPerSteadyRead(std::chrono::nanoseconds(0));
}

} // namespace Vantor::Test
