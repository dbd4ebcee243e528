#include "tests/link/firmware/FaultyPanel.h"

#include "protocol/PacketHeader.h"

#include <sstream>
#include <utility>

namespace Vantor::Test {

namespace {

constexpr std::uint8_t requestType = 41;
constexpr std::uint8_t chunkType = 44;

PanelModel::Options panelOptions(const FaultyPanel::Options& options)
{
    PanelModel::Options panel;
    panel.maxPacketSize = options.maxPacketSize;
    panel.keepRecords = false;
    panel.bootLoader.chunkTime = options.chunkTime;
    panel.bootLoader.refusesWithoutSession = !options.silentWithoutRequest;
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

FaultyPanel::FaultyPanel(FakeLibusb& usb, libusb_device* device, const Options& options)
    : m_model(panelOptions(options), PanelBridge::time), m_bridge(usb, device, m_model)
{
    m_bridge.onSend = [this](Bytes& packet) { see(packet); };
    m_bridge.onReceive = [this](const Bytes& bytes) { m_received += bytes.size() > sizeof(PacketHeader) ? 1 : 0; };
}

void FaultyPanel::beginFaults(FaultSource faults)
{
    m_faults = std::move(faults);
    m_met.clear();
    m_packets = 0;
    m_lastFault = PanelBridge::time();
}

void FaultyPanel::endFaults()
{
    m_faults = nullptr;
    m_model.clearFaults();
}

std::size_t FaultyPanel::takeReceived()
{
    return std::exchange(m_received, 0);
}

std::string FaultyPanel::difference(const Bytes& main, const Bytes& servo) const
{
    return compare("main", bootLoader().getFlash().main, main) + compare("servo", bootLoader().getFlash().servo, servo);
}

void FaultyPanel::see(Bytes& packet)
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

void FaultyPanel::meet(const FirmwarePacket& packet, Bytes& bytes)
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

} // namespace Vantor::Test
