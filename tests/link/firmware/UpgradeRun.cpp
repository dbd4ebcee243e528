#include "tests/link/firmware/UpgradeRun.h"

#include "tests/link/firmware/FirmwareRig.h"
#include "tests/support/TemporaryFolder.h"

#include "libMorvaneHostUsb/UsbMessageQueue.h"

#include <algorithm>
#include <sstream>

namespace Vantor::Test {

namespace {

constexpr std::chrono::seconds settleTime{5};

} // namespace

UpgradeRun::UpgradeRun(const Options& options) : m_options(options), m_panel(usb, panel, options), m_parser(this)
{
    setLevel(0);
    open();
    DeviceInformation info{};
    info.maxPacketSize = options.maxPacketSize;
    device->setDeviceInfo(info);
}

UpgradeRun::~UpgradeRun()
{
    log.take();
}

void UpgradeRun::setImages(const Bytes& main, const Bytes& servo)
{
    m_options.main = main;
    m_options.servo = servo;
}

UpgradeRun::Outcome UpgradeRun::run(const FirmwareFaults& faults, std::chrono::nanoseconds limit)
{
    return run(
        [&faults](const FirmwarePacket& packet) -> std::optional<FirmwareFault> {
            const auto fault = std::find_if(faults.begin(), faults.end(), [&packet](const FirmwareFault& one) {
                return one.packet == packet.number;
            });
            return fault != faults.end() ? std::optional(*fault) : std::nullopt;
        },
        limit);
}

UpgradeRun::Outcome UpgradeRun::run(const FaultyPanel::FaultSource& faults, std::chrono::nanoseconds limit)
{
    m_panel.beginFaults(faults);
    m_progress = 0;
    const TemporaryFile main(m_options.main);
    const TemporaryFile servo(m_options.servo);
    const auto start = PanelBridge::time();
    device->startFirmwareUpgrade(main.getPath(), servo.getPath(),
                                 [this](const UsbDevice::FirmwareProgress& step) { m_progress = step.bytesWritten; });
    poll();
    while (device->isUpdating() && PanelBridge::time() - m_panel.lastFault() < limit)
        pass();
    m_duration = PanelBridge::time() - start;
    // What is still under way comes now, and not in the next upgrade.
    m_panel.endFaults();
    const auto end = PanelBridge::time() + settleTime;
    while (PanelBridge::time() < end)
        pass();
    return outcome();
}

// As far as the next thing that happens, then what the library's threads do about it.
void UpgradeRun::pass()
{
    m_panel.bridge().pumpUntil(PanelBridge::time() + longestWait());
    deliver();
    usb.takeTrace();
    usb.takeCompletions();
    if (m_options.pollFirst)
        poll();
    if (receive() || !m_options.pollFirst)
        poll();
}

std::chrono::nanoseconds UpgradeRun::longestWait() const
{
    const auto now = VirtualClock::now();
    const auto due = std::min(device->getNextFirmwareStep(), now + passTime);
    return std::max<std::chrono::nanoseconds>(due - now, std::chrono::nanoseconds(0));
}

bool UpgradeRun::receive()
{
    const bool woken = queue->size() > 0;
    while (queue->size() > 0) {
        const auto message = queue->getMessage();
        m_parser.parse(message->data, message->size);
    }
    return woken;
}

void UpgradeRun::handleParsedPacket(unsigned short /*deviceId*/, const PacketType& type, const DataPacketUnion& data,
                                    unsigned int /*size*/)
{
    if (static_cast<int>(type) == 40)
        device->handleFirmwareUpgrade(data.firmwareUpgradeCommand);
}

UpgradeRun::Outcome UpgradeRun::outcome() const
{
    std::ostringstream text;
    if (device->isUpdating())
        text << "still updating: " << FirmwareState::of(*device) << "\n";
    if (!device->isAlive())
        text << "the device is dead\n";
    text << m_panel.difference(m_options.main, m_options.servo);
    const std::size_t total = m_options.main.size() + m_options.servo.size();
    if (text.str().empty() && m_progress != total)
        text << "progress ends at " << m_progress << " of " << total << "\n";
    return text.str();
}

} // namespace Vantor::Test
