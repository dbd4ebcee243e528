#include "tests/link/firmware/ManagedUpgrade.h"

#include "tests/link/firmware/FirmwareRig.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>

namespace Vantor::Test {

ManagedUpgrade::ManagedUpgrade(const FaultyPanel::Options& options) : m_options(options)
{
    setLevel(0);
    libusb_device* const attached = usb.attach({});
    m_panel = std::make_unique<FaultyPanel>(usb, attached, options);
    start();
}

ManagedUpgrade::~ManagedUpgrade()
{
    stop();
    log.take();
}

std::string ManagedUpgrade::run(const FaultyPanel::FaultSource& faults, std::chrono::nanoseconds limit)
{
    const auto start = PanelBridge::time();
    const auto devices = manager->getDeviceListSafe();
    if (devices.size() != 1)
        return "no device\n";
    UsbDevice& device = *devices.front();
    while (device.getDeviceInfo() == nullptr && PanelBridge::time() - start < limit)
        pass();
    m_panel->beginFaults(faults);
    const TemporaryFile main(m_options.main);
    const TemporaryFile servo(m_options.servo);
    device.startFirmwareUpgrade(main.getPath(), servo.getPath(),
                                [this](const UsbDevice::FirmwareProgress& step) { m_progress = step.bytesWritten; });
    while (device.isUpdating() && PanelBridge::time() - m_panel->lastFault() < limit)
        pass();
    m_panel->endFaults();
    std::string outcome = m_panel->difference(m_options.main, m_options.servo);
    if (device.isUpdating())
        outcome += "still updating\n";
    if (!device.isAlive())
        outcome += "the device is dead\n";
    if (outcome.empty() && m_progress != m_options.main.size() + m_options.servo.size())
        outcome += "progress ends at " + std::to_string(m_progress) + "\n";
    return outcome;
}

// As far as the next thing that happens, or the whole of the worker's event call.
void ManagedUpgrade::pass()
{
    m_panel->bridge().pumpUntil(PanelBridge::time() + usb.remainingWait());
    const std::size_t received = m_panel->takeReceived();
    usb.passAfter(std::chrono::nanoseconds(0));
    if (received != 0)
        observer.waitForMessages(received);
    usb.takeTrace();
    usb.takeCompletions();
    observer.take();
}

} // namespace Vantor::Test
