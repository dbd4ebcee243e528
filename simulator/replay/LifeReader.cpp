#include "simulator/replay/LifeReader.h"

#include "protocol/PacketHeader.h"
#include "simulator/panel/PanelDescriptors.h"
#include "simulator/panel/WireDecoder.h"
#include "wire/PanelLink.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <linux/usb/ch9.h>

namespace Vantor {

namespace {

using Event = CapturedUrb::Event;

constexpr std::size_t urbSplit = 16384; // how hosts split transfers without scatter-gather
constexpr std::size_t deviceDescriptorSize = 18;
constexpr std::size_t mostNotes = 10;

// A transfer that took the panel longer is played with that delay.
constexpr std::chrono::milliseconds noticeableDelay{50};

bool isGone(std::int32_t status)
{
    return status == -ESHUTDOWN || status == -ENODEV;
}

bool isCancelled(std::int32_t status)
{
    return status == -ENOENT || status == -ECONNRESET;
}

bool isStatus(std::int32_t status)
{
    return status <= 0 && status > -4096;
}

// Whether a transfer with these bytes, the last `last` of which were one URB's, may have
// another URB: the packet says more than there is, and the host has split it as hosts do.
bool mayGoOn(const std::vector<std::uint8_t>& bytes, std::size_t last)
{
    PacketHeader header{};
    if (last == 0 || last % urbSplit != 0)
        return false;
    std::memcpy(&header, bytes.data(), sizeof header);
    return header.length > bytes.size();
}

// Whether a read may have ended with these since it was a piece of 16 KiB.
bool endsInAPacket(const std::vector<std::uint8_t>& bytes)
{
    if (bytes.empty() || bytes.size() % urbSplit != 0)
        return false;
    std::size_t at = 0;
    PacketHeader header{};
    while (bytes.size() - at >= sizeof header) {
        std::memcpy(&header, bytes.data() + at, sizeof header);
        if (header.length < sizeof header)
            return false;
        if (header.length > bytes.size() - at)
            return true;
        at += header.length;
    }
    return at != bytes.size();
}

} // namespace

LifeReader::LifeReader(std::chrono::nanoseconds begin, std::chrono::nanoseconds zero,
                       std::chrono::nanoseconds captureBegin)
    : m_zero(zero), m_captureBegin(captureBegin)
{
    m_life.begin = begin - zero;
    m_time = m_life.begin;
}

void LifeReader::note(std::size_t frame, const std::string& text)
{
    if (m_notes.size() < mostNotes)
        m_notes.push_back("frame " + std::to_string(frame) + ": " + text);
    else if (m_notes.size() == mostNotes)
        m_notes.emplace_back("more of this kind");
}

void LifeReader::step(PanelScript::Deed deed, bool meetsRead)
{
    m_life.isLeft = std::holds_alternative<PanelScript::Leave>(deed);
    m_life.steps.push_back({std::move(deed), meetsRead, m_time, m_frame, m_life.records.size()});
}

void LifeReader::add(const CapturedUrb& urb, std::size_t frame)
{
    if (m_life.isLeft)
        return;
    m_frame = frame;
    m_time = std::max(m_time, urb.time - m_zero); // clocks are set back
    if (urb.transfer == CapturedUrb::Transfer::Control)
        return addControl(urb);
    const bool isIn = urb.endpoint == PanelLink::inEndpoint;
    if (urb.transfer != CapturedUrb::Transfer::Bulk || (!isIn && urb.endpoint != PanelLink::outEndpoint))
        return;
    if (!std::exchange(m_isBegun, true))
        m_life.firstTransfer = m_time;
    isIn ? addRead(urb) : addWrite(urb);
}

void LifeReader::addControl(const CapturedUrb& urb)
{
    if (urb.event == Event::Submit) {
        if (urb.setupFlag == CapturedUrb::follows)
            m_setups[urb.id] = urb.setup;
        return;
    }
    const auto found = m_setups.find(urb.id);
    if (found == m_setups.end())
        return;
    const auto setup = found->second;
    m_setups.erase(found);
    if (urb.event == Event::Complete && urb.status == 0 && setup[0] == USB_DIR_IN && setup[1] == USB_REQ_GET_DESCRIPTOR)
        keepDescriptor(setup[3], setup[2], urb.data);
}

void LifeReader::keepDescriptor(std::uint8_t kind, std::uint8_t index, const std::vector<std::uint8_t>& bytes)
{
    if (kind == USB_DT_DEVICE && bytes.size() >= deviceDescriptorSize)
        m_device.assign(bytes.begin(), bytes.begin() + deviceDescriptorSize);
    else if (kind == USB_DT_CONFIG && index == 0 && bytes.size() > m_configuration.size())
        m_configuration = bytes; // hosts ask for its beginning first
    else if (kind == USB_DT_STRING && bytes.size() > m_life.strings[index].size())
        m_life.strings[index] = bytes;
}

void LifeReader::addRead(const CapturedUrb& urb)
{
    if (urb.event == Event::Submit) {
        m_reads.insert(urb.id);
        return;
    }
    m_reads.erase(urb.id);
    if (isGone(urb.status))
        return step(PanelScript::Leave{}, urb.event == Event::Complete);
    if (urb.event != Event::Complete || isCancelled(urb.status))
        return;
    if (!isStatus(urb.status))
        return note("a read with status " + std::to_string(urb.status) + ", which is none");
    if (urb.data.size() < urb.length && m_missingFromPanel.empty())
        m_missingFromPanel = "frame " + std::to_string(m_frame) + ": " + std::to_string(urb.data.size()) + " of " +
                             std::to_string(urb.length) + " bytes from the panel are in the capture";
    m_isSplit = m_isSplit || endsInAPacket(urb.data);
    // It is the host that calls a short read one.
    step(PanelScript::Answer{urb.status == -EREMOTEIO ? 0 : urb.status, urb.data}, true);
}

void LifeReader::addWrite(const CapturedUrb& urb)
{
    const auto found = std::find_if(m_writes.begin(), m_writes.end(),
                                    [&urb](const Write& write) { return write.urbs.count(urb.id) != 0; });
    const bool isBrokenOff = m_brokenOff.erase(urb.id) != 0;
    if (urb.event == Event::Submit) {
        if (found != m_writes.end()) {
            note("a transfer is submitted that is under way; its end is not in the capture");
            breakOff(found);
            m_brokenOff.erase(urb.id);
        }
        submitWrite(urb);
    } else if (found != m_writes.end()) {
        completeWrite(found, urb);
    } else if (isGone(urb.status)) {
        step(PanelScript::Leave{}, false);
    } else if (isBrokenOff) {
        return;
    } else if (urb.event == Event::Complete) {
        note("the end of a transfer to the panel; what was sent in it is not in the capture");
    }
}

void LifeReader::submitWrite(const CapturedUrb& urb)
{
    if (m_writes.empty() || m_writes.back().isEnded)
        m_writes.emplace_back().time = m_time;
    else
        m_isSplit = true;
    Write& write = m_writes.back();
    write.urbs[urb.id] = urb.length;
    write.frame = m_frame;
    write.frameTime = urb.time - m_captureBegin;
    write.bytes.insert(write.bytes.end(), urb.data.begin(), urb.data.end());
    write.isEnded = !mayGoOn(write.bytes, urb.data.size());
    if (urb.data.size() >= urb.length)
        return;
    write.isMissing = true;
    if (m_missingFromHost.empty())
        m_missingFromHost = "frame " + std::to_string(m_frame) + ": " + std::to_string(urb.data.size()) + " of " +
                            std::to_string(urb.length) + " bytes to the panel are in the capture";
}

void LifeReader::completeWrite(Writes::iterator write, const CapturedUrb& urb)
{
    const bool isTaken = urb.event == Event::Complete && urb.status == 0;
    const bool isCut = isTaken && urb.length < write->urbs[urb.id];
    write->taken += std::min<std::size_t>(urb.length, write->bytes.size() - write->taken);
    write->urbs.erase(urb.id);
    if (isTaken && !isCut) {
        if (write->urbs.empty() && write->isEnded) {
            takeWrite(*write);
            m_writes.erase(write);
        }
        return;
    }
    const std::size_t taken = write->taken;
    breakOff(write);
    if (isGone(urb.status))
        return step(PanelScript::Leave{}, false);
    if (urb.event != Event::Complete)
        return;
    PanelFault fault;
    if (isCut) {
        fault.kind = PanelFault::Kind::Short;
        fault.bytes = static_cast<unsigned int>(taken);
    } else if (isCancelled(urb.status)) {
        fault.kind = PanelFault::Kind::NoAnswer;
    } else if (urb.status != -EPIPE) { // which is what a fault is at first
        if (!isStatus(urb.status))
            return note("a transfer to the panel with status " + std::to_string(urb.status) + ", which is none");
        fault.kind = PanelFault::Kind::Status;
        fault.status = urb.status;
    }
    step(fault, false);
}

// The rest of the transfer fails with it, and what the host has not submitted of it does
// not come any more.
void LifeReader::breakOff(Writes::iterator write)
{
    for (const auto& [urb, length] : write->urbs)
        m_brokenOff.insert(urb);
    m_writes.erase(write);
}

void LifeReader::takeWrite(const Write& write)
{
    if (m_time - write.time >= noticeableDelay) {
        PanelFault fault;
        fault.kind = PanelFault::Kind::Delay;
        fault.delay = m_time - write.time;
        step(fault, false);
    }
    if (write.isMissing)
        return;
    const WireDecoder::Result result = WireDecoder::decode(write.bytes, UINT16_MAX);
    if (!result.violations.empty())
        note(write.frame, "what the host sent is malformed: " + result.violations.front());
    for (const WireDecoder::Packet& packet : result.packets)
        for (const WireDecoder::Record& record : packet.records)
            m_life.records.push_back({record.type, record.payload, m_time, write.frame, write.frameTime});
}

RecordedSession::Life LifeReader::takeLife()
{
    std::vector<std::uint8_t>& descriptors = m_life.descriptors;
    descriptors = m_device;
    descriptors.insert(descriptors.end(), m_configuration.begin(), m_configuration.end());
    if (arePanelDescriptors(descriptors))
        return std::move(m_life);
    descriptors.clear();
    m_life.strings.clear();
    if (m_device.empty())
        return std::move(m_life);
    const auto wordAt = [this](std::size_t offset) {
        return static_cast<std::uint16_t>(m_device[offset] | m_device[offset + 1] << 8);
    };
    m_notes.emplace_back("its configuration is not in the capture: it is that of a simulated panel");
    descriptors = makePanelDescriptors(wordAt(8), wordAt(10));
    for (std::uint8_t index = 0; index <= 2; ++index)
        m_life.strings[index] = makePanelString(index);
    return std::move(m_life);
}

std::vector<std::string> LifeReader::takeNotes()
{
    return std::move(m_notes);
}

} // namespace Vantor
