#pragma once

#include "simulator/panel/PanelModel.h"
#include "tests/support/FakeLibusb.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace Vantor::Test {

// Puts a PanelModel at the other end of the scripted libusb: what is submitted goes to the
// model, what the model completes comes back. Transfers that it holds time out after their
// time-out, in virtual time.
//
// Threads: one at a time. Lifetime: within that of what it is given.
class PanelBridge {
public:
    PanelBridge(FakeLibusb& usb, libusb_device* device, PanelModel& model);

    // Sees, and may change, every send before the panel does, and every received buffer
    // before the host does; an empty buffer is not received at all.
    std::function<void(Bytes&)> onSend;
    std::function<void(const Bytes&)> onReceive;

    // Hands over what is there, both ways, and lets time pass until a completion waits for
    // the host, or until `end`.
    void pumpUntil(std::chrono::nanoseconds end);

    // The model's clock.
    static std::chrono::nanoseconds time();

private:
    struct Pending {
        std::uint8_t endpoint;
        PanelModel::UrbId urb;
        std::chrono::nanoseconds timeout;
    };

    bool pump();
    std::optional<std::chrono::nanoseconds> nextDeadline() const;
    void submit(std::uint8_t endpoint);
    void expire(Pending& pending);
    bool complete(const PanelModel::Completion& completion);
    bool completeRead(const PanelModel::Completion& completion);

    FakeLibusb& m_usb;
    libusb_device* const m_device;
    PanelModel& m_model;
    PanelModel::UrbId m_lastUrb = 0;
    std::vector<Pending> m_pending;
    std::vector<PanelModel::UrbId> m_expired;
};

} // namespace Vantor::Test
