#pragma once

#include "simulator/capture/CapturedUrb.h"
#include "simulator/panel/ControlEndpoint.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace Vantor {

// The link between a host and one panel, from plug to unplug, as the host's usbmon would
// tell it to whoever listens.
//
// Threads: one at a time. Lifetime: a value; the listener must outlive it.
class LinkTap {
public:
    // Is called in the order in which things cross the link; `time` is the listener's to set.
    using Listener = std::function<void(CapturedUrb)>;
    using Setup = ControlEndpoint::Setup;

    // As the host numbers it.
    struct Address {
        std::uint16_t bus;
        std::uint8_t device;
    };

    struct Transfer {
        std::uint32_t id;           // of one that is submitted and not complete
        std::uint8_t endpoint;      // with its direction
        std::uint32_t flags;        // CapturedUrb has those that count
        std::uint32_t length;       // asked for
        std::optional<Setup> setup; // of a control transfer
    };

    LinkTap() = default; // nobody listens
    // `plug` makes ids unique beyond this one.
    LinkTap(Listener listener, const Address& address, std::uint32_t plug);

    bool isOpen() const { return static_cast<bool>(m_listener); }

    // `data`: of a write.
    void submit(const Transfer& transfer, const std::vector<std::uint8_t>& data) const;

    // `data`: of a read, `length` bytes.
    void complete(const Transfer& transfer, int status, std::uint32_t length,
                  const std::vector<std::uint8_t>& data) const;

    // A control transfer that is answered at once. `data`: of a write.
    void exchange(std::uint32_t id, const Setup& setup, const std::vector<std::uint8_t>& data,
                  const ControlEndpoint::Answer& answer) const;

private:
    CapturedUrb makeUrb(CapturedUrb::Event event, const Transfer& transfer) const;

    Listener m_listener;
    Address m_address{};
    std::uint32_t m_plug = 0;
};

} // namespace Vantor
