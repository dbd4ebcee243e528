#include "simulator/replay/SessionReader.h"

#include "protocol/DeviceInformation.h"
#include "simulator/bus/PanelBus.h"
#include "simulator/capture/CaptureReader.h"
#include "simulator/panel/WireDecoder.h"
#include "simulator/replay/LifeReader.h"
#include "wire/PanelLink.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>

#include <linux/usb/ch9.h>

namespace Vantor {

namespace {

using Event = CapturedUrb::Event;
using Transfer = CapturedUrb::Transfer;

bool isOfPanelLink(const CapturedUrb& urb)
{
    return urb.transfer == Transfer::Bulk &&
           (urb.endpoint == PanelLink::outEndpoint || urb.endpoint == PanelLink::inEndpoint);
}

bool asksForDescriptor(const CapturedUrb& urb, std::uint8_t kind)
{
    return urb.event == Event::Submit && urb.setupFlag == CapturedUrb::follows && urb.setup[0] == USB_DIR_IN &&
           urb.setup[1] == USB_REQ_GET_DESCRIPTOR && urb.setup[3] == kind;
}

// The packets of one transfer or more, whole and without a contradiction.
bool arePackets(const std::vector<std::uint8_t>& bytes)
{
    std::size_t size = 0;
    for (const WireDecoder::Packet& packet : WireDecoder::decode(bytes, UINT16_MAX).packets) {
        if (packet.records.empty() || packet.records.size() != packet.header.count)
            return false;
        size += packet.header.length;
    }
    return size != 0 && size == bytes.size();
}

std::optional<std::uint16_t> findAnnouncement(const std::vector<std::uint8_t>& bytes)
{
    std::optional<std::uint16_t> limit;
    for (const WireDecoder::Packet& packet : WireDecoder::decode(bytes, UINT16_MAX).packets)
        for (const WireDecoder::Record& record : packet.records) {
            DeviceInformation info{};
            if (record.type != PacketType::DeviceInformation || record.payload.size() != sizeof info)
                continue;
            std::memcpy(&info, record.payload.data(), sizeof info);
            limit = std::max<std::uint16_t>(limit.value_or(0), info.maxPacketSize);
        }
    return limit;
}

std::optional<std::uint16_t> findAnnouncement(const RecordedSession::Life& life)
{
    std::optional<std::uint16_t> limit;
    for (const RecordedSession::Step& step : life.steps)
        if (const auto* const answer = std::get_if<PanelScript::Answer>(&step.deed))
            limit = std::max(limit, findAnnouncement(answer->data));
    return limit;
}

// The panel that has left by that frame and is plugged back; a new one if there is none.
std::size_t findPanel(const RecordedSession& session, std::size_t frame)
{
    std::size_t found = session.panels.size();
    std::size_t left = frame;
    for (std::size_t panel = 0; panel < session.panels.size(); ++panel) {
        const RecordedSession::Life& last = session.panels[panel].lives.back();
        if (!last.isLeft || last.steps.back().frame >= left)
            continue;
        found = panel;
        left = last.steps.back().frame;
    }
    return found;
}

} // namespace

SessionReader::Device& SessionReader::deviceOf(const CapturedUrb& urb)
{
    const auto known = std::find_if(m_devices.rbegin(), m_devices.rend(), [&urb](const Device& device) {
        return device.bus == urb.bus && device.number == urb.device;
    });
    if (known != m_devices.rend() && !(known->isGone && asksForDescriptor(urb, USB_DT_DEVICE)))
        return *known;
    return m_devices.emplace_back(Device{urb.bus, urb.device, {}});
}

void SessionReader::noteCut(const CapturedUrb& urb)
{
    if (m_firstCut.empty() && (urb.flaw == CapturedUrb::Flaw::NoHeader || urb.flaw == CapturedUrb::Flaw::Snapped))
        m_firstCut = "frame " + std::to_string(m_frames) + " is cut at " + std::to_string(urb.frameSize) + " bytes";
}

void SessionReader::add(CapturedUrb urb)
{
    if (++m_frames == 1)
        m_begin = urb.time;
    noteCut(urb);
    if (urb.flaw == CapturedUrb::Flaw::NoHeader) {
        ++m_headless;
        return;
    }
    // Of device 0 are those that have no number yet.
    if ((urb.transfer != Transfer::Control && !isOfPanelLink(urb)) || urb.device == 0)
        return;
    Device& device = deviceOf(urb);
    const bool isGone = urb.event != Event::Submit && (urb.status == -ESHUTDOWN || urb.status == -ENODEV);
    device.isGone = device.isGone || (isGone && isOfPanelLink(urb));
    device.frames.push_back({std::move(urb), m_frames});
}

bool SessionReader::isPanel(const Device& device)
{
    bool isUsed = false;
    std::optional<std::uint64_t> asking;
    for (const auto& [urb, number] : device.frames) {
        if (asksForDescriptor(urb, USB_DT_DEVICE))
            asking = urb.id;
        constexpr std::size_t productAt = 10;
        const bool isAnswer = urb.event == Event::Complete && asking == urb.id && urb.data.size() >= productAt + 2;
        if (isAnswer && urb.transfer == Transfer::Control)
            return (urb.data[productAt] | urb.data[productAt + 1] << 8) == PanelLink::productId;
        isUsed = isUsed || (isOfPanelLink(urb) && arePackets(urb.data));
    }
    return isUsed;
}

// The host's first transfer, or the beginning of it all.
std::chrono::nanoseconds SessionReader::findZero(const std::vector<const Device*>& panels)
{
    std::optional<std::chrono::nanoseconds> zero;
    for (const Device* const device : panels) {
        const auto first = std::find_if(device->frames.begin(), device->frames.end(),
                                        [](const Frame& frame) { return isOfPanelLink(frame.urb); });
        if (first != device->frames.end() && (!zero || first->urb.time < *zero))
            zero = first->urb.time;
    }
    return zero.value_or(panels.front()->frames.front().urb.time);
}

void SessionReader::readLife(const Device& device, std::chrono::nanoseconds zero, bool isCut,
                             RecordedSession& session) const
{
    LifeReader reader(device.frames.front().urb.time, zero, m_begin);
    for (const auto& [urb, number] : device.frames)
        reader.add(urb, number);
    RecordedSession::Life life = reader.takeLife();

    const std::size_t index = findPanel(session, device.frames.front().number);
    if (index == session.panels.size())
        session.panels.emplace_back();
    const std::string name = "panel " + std::to_string(index) + " (bus " + std::to_string(device.bus) + ", device " +
                             std::to_string(device.number) + "): ";
    if (life.descriptors.empty())
        session.notes.push_back(name + "it is not found by the host within the capture: its descriptors are those of a "
                                       "simulated panel");
    for (const std::string& note : reader.takeNotes())
        session.notes.push_back(name + note);
    const auto keepFirst = [&name](std::string& kept, const std::string& found) {
        if (kept.empty() && !found.empty())
            kept = name + found;
    };
    keepFirst(session.missingFromPanels, reader.getMissingFromPanel());
    keepFirst(session.missingFromHost, reader.getMissingFromHost());
    session.announcedLimit = std::max(session.announcedLimit, findAnnouncement(life));

    session.isSplit = session.isSplit || reader.isSplit();

    RecordedSession::Panel& panel = session.panels[index];
    panel.isOpen = reader.isOpen() || (isCut && !life.isLeft);
    panel.lives.push_back(std::move(life));
}

RecordedSession SessionReader::finish(const std::string& cut)
{
    std::vector<const Device*> panels;
    for (const Device& device : m_devices)
        if (isPanel(device))
            panels.push_back(&device);
    if (panels.empty() && !m_firstCut.empty())
        throw std::runtime_error(m_firstCut + ", and no panel is found in what there is; take it with whole frames "
                                              "(tcpdump -s 0)");
    if (panels.empty())
        throw std::runtime_error("no panel is in it: of " + std::to_string(m_frames) + " frames of " +
                                 std::to_string(m_devices.size()) +
                                 " devices, none is of a device with product id beef, nor is any a panel's packet");
    RecordedSession session;
    const std::chrono::nanoseconds zero = findZero(panels);
    for (const Device* const device : panels)
        readLife(*device, zero, !cut.empty(), session);
    if (session.panels.size() > PanelBus::maxPanels)
        throw std::runtime_error(std::to_string(session.panels.size()) + " panels are in it, a bus has " +
                                 std::to_string(PanelBus::maxPanels));
    if (m_headless != 0)
        session.notes.push_back(std::to_string(m_headless) + (m_headless == 1
                                                                  ? " frame is shorter than its header"
                                                                  : " frames are shorter than their headers"));
    if (!cut.empty())
        session.notes.push_back("what is before the defect is used: " + cut);
    return session;
}

RecordedSession SessionReader::readFile(const std::string& path)
{
    CaptureReader file(path);
    SessionReader reader;
    std::string cut;
    try {
        while (auto urb = file.next())
            reader.add(std::move(*urb));
    } catch (const std::runtime_error& error) {
        if (reader.m_frames == 0)
            throw;
        cut = error.what();
    }
    return reader.finish(cut);
}

} // namespace Vantor
