#include "tests/link/UpgradeRun.h"

#include "libMorvaneHostUsb/UsbMessageQueue.h"

#include <algorithm>
#include <sstream>

namespace Vantor::Test {

namespace {

constexpr std::chrono::milliseconds passTime{1050};
constexpr std::chrono::seconds settleTime{5};
constexpr std::uint8_t requestType = 41;
constexpr std::uint8_t chunkType = 44;

PanelModel::Options panelOptions(const UpgradeRun::Options& options)
{
    PanelModel::Options panel;
    panel.maxPacketSize = options.maxPacketSize;
    panel.keepRecords = false;
    panel.bootLoader.chunkTime = options.chunkTime;
    return panel;
}

std::uint32_t wordAt(const Bytes& bytes, std::size_t at)
{
    return static_cast<std::uint32_t>(bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16) |
           static_cast<std::uint32_t>(bytes[at + 3]) << 24;
}

std::string compare(const char* name, const BootLoader::Image& flash, const Bytes& image)
{
    if (image.empty() || flash.bytes == image)
        return "";
    std::ostringstream text;
    text << name << ": " << flash.bytes.size() << " of " << image.size() << " bytes";
    if (flash.bytes.size() == image.size())
        text << ", not the same";
    return text.str() + "\n";
}

} // namespace

UpgradeRun::UpgradeRun(const Options& options)
    : m_options(options), m_model(panelOptions(options), PanelBridge::time), m_bridge(usb, panel, m_model),
      m_parser(this)
{
    setLevel(0);
    open();
    DeviceInformation info{};
    info.maxPacketSize = options.maxPacketSize;
    device->setDeviceInfo(info);
    m_bridge.onSend = [this](Bytes& packet) { see(packet); };
    m_bridge.onReceive = [this](Bytes& bytes) { filter(bytes); };
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

UpgradeRun::Outcome UpgradeRun::run(const FaultSource& faults, std::chrono::nanoseconds limit)
{
    m_faults = faults;
    m_met.clear();
    m_packets = 0;
    m_progress = 0;
    const ImageFile main(m_options.main);
    const ImageFile servo(m_options.servo);
    const auto start = PanelBridge::time();
    m_lastPass = start;
    m_lastFault = start;
    device->startFirmwareUpgrade(main.path(), servo.path(),
                                 [this](const UsbDevice::FirmwareProgress& step) { m_progress = step.bytesWritten; });
    while (device->isUpdating() && PanelBridge::time() - m_lastFault < limit)
        pass();
    m_duration = PanelBridge::time() - start;
    // What is still under way comes now, and not in the next upgrade.
    m_model.clearFaults();
    m_faults = nullptr;
    const auto end = PanelBridge::time() + settleTime;
    while (PanelBridge::time() < end)
        pass();
    return outcome();
}

// As far as the next thing that happens, then what the library's threads do about it.
void UpgradeRun::pass()
{
    while (!m_bridge.pump() && PanelBridge::time() < m_lastPass + passTime)
        advance();
    m_lastPass = PanelBridge::time();
    deliver();
    usb.takeTrace();
    usb.takeCompletions();
    if (m_options.pollFirst)
        poll();
    receive();
    if (!m_options.pollFirst)
        poll();
}

void UpgradeRun::advance()
{
    const auto now = PanelBridge::time();
    const auto end = m_lastPass + passTime;
    const auto next = std::min(m_bridge.nextDeadline().value_or(end), end);
    VirtualClock::advance(std::max(next - now, std::chrono::nanoseconds(1)));
}

void UpgradeRun::receive()
{
    while (queue->size() > 0) {
        const auto message = queue->getMessage();
        m_parser.parse(message->data, message->size);
    }
}

void UpgradeRun::handleParsedPacket(unsigned short /*deviceId*/, const PacketType& type, const DataPacketUnion& data,
                                    unsigned int /*size*/)
{
    if (static_cast<int>(type) == 40)
        device->handleFirmwareUpgrade(data.firmwareUpgradeCommand);
}

void UpgradeRun::see(Bytes& packet)
{
    FirmwarePacket seen{m_packets, false, 0, 0, static_cast<std::uint32_t>(packet.size())};
    bool isFirmware = false;
    for (std::size_t at = 8; at + 3 <= packet.size(); at += 3U + packet[at + 1] + 256U * packet[at + 2]) {
        if (packet[at] == requestType)
            seen.isRequest = true;
        if (packet[at] == chunkType) {
            seen.board = packet[at + 3];
            seen.address = wordAt(packet, at + 4);
        }
        isFirmware = isFirmware || packet[at] == requestType || packet[at] == chunkType;
    }
    if (!isFirmware)
        return;
    ++m_packets;
    meet(seen, packet);
}

void UpgradeRun::meet(const FirmwarePacket& packet, Bytes& bytes)
{
    auto fault = m_faults ? m_faults(packet) : std::nullopt;
    if (!fault)
        return;
    fault->packet = packet.number;
    m_met.push_back(*fault);
    m_lastFault = PanelBridge::time();
    if (const auto boot = fault->bootFault())
        m_model.inject(*boot);
    if (const auto link = fault->panelFault())
        m_model.inject(*link);
    if (fault->kind == FirmwareFault::Kind::SendCorrupt)
        bytes[fault->value % bytes.size()] ^= static_cast<std::uint8_t>(1U << (fault->value / bytes.size() % 8));
}

// What a panel that never answers without a request would not have said.
void UpgradeRun::filter(Bytes& bytes) const
{
    const bool refuses = bytes.size() == 25 && bytes[8] == 40 && bytes[11] == 0xF2;
    if (m_options.silentWithoutRequest && refuses && bootLoader().getStatistics().requestsAccepted == 0)
        bytes.clear();
}

UpgradeRun::Outcome UpgradeRun::outcome() const
{
    std::ostringstream text;
    if (device->isUpdating())
        text << "still updating: " << FirmwareState::of(*device) << "\n";
    if (!device->isAlive())
        text << "the device is dead\n";
    text << compare("main", bootLoader().getFlash().main, m_options.main)
         << compare("servo", bootLoader().getFlash().servo, m_options.servo);
    const std::size_t total = m_options.main.size() + m_options.servo.size();
    if (text.str().empty() && m_progress != total)
        text << "progress ends at " << m_progress << " of " << total << "\n";
    return text.str();
}

} // namespace Vantor::Test
