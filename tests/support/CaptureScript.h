#pragma once

#include "simulator/capture/CapturedUrb.h"
#include "simulator/panel/PanelDescriptors.h"
#include "simulator/panel/PanelFault.h"
#include "tests/support/Bytes.h"
#include "wire/PanelLink.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <utility>
#include <vector>

namespace Vantor {

// The frames of a capture, one after the other, as usbmon would tell them: of one device
// until another is begun.
class CaptureScript {
public:
    static constexpr std::chrono::seconds epoch{1700000000};

    // What comes from now on, since the beginning.
    CaptureScript& at(std::chrono::nanoseconds time)
    {
        m_time = epoch + time;
        return *this;
    }

    CaptureScript& device(std::uint8_t number)
    {
        m_device = number;
        m_read = 0;
        return *this;
    }

    // As the kernel asks for the descriptors: those of a panel from elsewhere.
    CaptureScript& enumerate(const Bytes& descriptors = makePanelDescriptors(0x1234, PanelLink::productId))
    {
        descriptor(1, 0, Bytes(descriptors.begin(), descriptors.begin() + 18));
        descriptor(2, 0, Bytes(descriptors.begin() + 18, descriptors.begin() + 27));
        descriptor(2, 0, Bytes(descriptors.begin() + 18, descriptors.end()));
        return descriptor(3, 2, {10, 3, 'R', 0, 'e', 0, 'a', 0, 'l', 0});
    }

    CaptureScript& descriptor(std::uint8_t kind, std::uint8_t index, const Bytes& bytes)
    {
        CapturedUrb urb = makeUrb(CapturedUrb::Event::Submit, 0x80);
        urb.transfer = CapturedUrb::Transfer::Control;
        urb.setupFlag = CapturedUrb::follows;
        urb.setup = {0x80, 6, index, kind, 0, 0, 0xFF, 0};
        urb.id = ++m_lastId;
        urb.dataFlag = CapturedUrb::noDataIn;
        add(urb);
        urb.event = CapturedUrb::Event::Complete;
        urb.setupFlag = CapturedUrb::noSetup;
        urb.status = 0;
        return addWithData(urb, bytes);
    }

    // The host begins to read.
    CaptureScript& read(std::uint32_t capacity = 32768)
    {
        CapturedUrb urb = makeUrb(CapturedUrb::Event::Submit, PanelLink::inEndpoint);
        m_read = urb.id = ++m_lastId;
        urb.length = capacity;
        urb.dataFlag = CapturedUrb::noDataIn;
        return add(urb);
    }

    // That read is complete.
    CaptureScript& answer(const Bytes& bytes, std::int32_t status = 0)
    {
        CapturedUrb urb = makeUrb(CapturedUrb::Event::Complete, PanelLink::inEndpoint);
        urb.id = m_read;
        urb.status = status;
        return addWithData(urb, bytes);
    }

    // The host begins to write; `done` ends that.
    CaptureScript& write(const Bytes& bytes)
    {
        CapturedUrb urb = makeUrb(CapturedUrb::Event::Submit, PanelLink::outEndpoint);
        m_write = urb.id = ++m_lastId;
        m_written = static_cast<std::uint32_t>(bytes.size());
        return addWithData(urb, bytes);
    }

    CaptureScript& done(std::int32_t status = 0) { return done(status, status == 0 ? m_written : 0); }

    CaptureScript& done(std::int32_t status, std::uint32_t taken)
    {
        CapturedUrb urb = makeUrb(CapturedUrb::Event::Complete, PanelLink::outEndpoint);
        urb.id = m_write;
        urb.status = status;
        urb.length = taken;
        urb.dataFlag = CapturedUrb::noDataOut;
        return add(urb);
    }

    // A packet with one record, taken at once.
    CaptureScript& send(std::uint8_t type, const Bytes& payload) { return write(packet(type, payload)).done(); }

    // A packet with one record; `device` is what a panel puts there.
    static Bytes packet(std::uint8_t type, const Bytes& payload, std::uint8_t device = 0)
    {
        const std::size_t size = 8 + 3 + payload.size();
        const Bytes header{static_cast<std::uint8_t>(size),
                           static_cast<std::uint8_t>(size >> 8),
                           1,
                           0,
                           device,
                           0,
                           0,
                           0,
                           type,
                           static_cast<std::uint8_t>(payload.size()),
                           static_cast<std::uint8_t>(payload.size() >> 8)};
        return joined({header, payload});
    }

    std::vector<CapturedUrb> urbs;

private:
    CapturedUrb makeUrb(CapturedUrb::Event event, std::uint8_t endpoint) const
    {
        CapturedUrb urb;
        urb.event = event;
        urb.endpoint = endpoint;
        urb.bus = 1;
        urb.device = m_device;
        urb.time = m_time;
        urb.status = event == CapturedUrb::Event::Submit ? CapturedUrb::inProgress : 0;
        return urb;
    }

    CaptureScript& add(CapturedUrb urb)
    {
        urbs.push_back(std::move(urb));
        return *this;
    }

    CaptureScript& addWithData(CapturedUrb urb, const Bytes& bytes)
    {
        urb.length = static_cast<std::uint32_t>(bytes.size());
        urb.presentLength = urb.length;
        urb.dataFlag = CapturedUrb::follows;
        urb.data = bytes;
        return add(std::move(urb));
    }

    std::chrono::nanoseconds m_time = epoch;
    std::uint8_t m_device = 5;
    std::uint64_t m_lastId = 0xffff888100000000;
    std::uint64_t m_read = 0;
    std::uint64_t m_write = 0;
    std::uint32_t m_written = 0;
};

} // namespace Vantor
