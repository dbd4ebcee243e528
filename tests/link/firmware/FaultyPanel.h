#pragma once

#include "tests/link/firmware/FirmwareFault.h"
#include "tests/support/PanelBridge.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace Vantor::Test {

// A firmware packet on its way to the panel, for whoever decides on its fault.
struct FirmwarePacket {
    unsigned int number; // from 0
    bool isRequest;      // one is in it
    std::uint8_t board;  // of its last chunk
    std::uint32_t address;
    std::uint32_t size; // of the packet
};

// A simulated panel behind the scripted libusb, whose firmware packets meet faults.
//
// Threads: one at a time. Lifetime: within that of what it is given.
class FaultyPanel {
public:
    // Called for every firmware packet.
    using FaultSource = std::function<std::optional<FirmwareFault>(const FirmwarePacket&)>;

    struct Options {
        Bytes main;
        Bytes servo;
        std::chrono::nanoseconds chunkTime = std::chrono::milliseconds(110);
        std::uint16_t maxPacketSize = 8192;
        // A chunk without an announcement is not answered, instead of "failed, send again".
        bool silentWithoutRequest = true;
    };

    FaultyPanel(FakeLibusb& usb, libusb_device* device, const Options& options);

    // Another upgrade begins; packets count from 0 again.
    void beginFaults(FaultSource faults);
    void endFaults();

    PanelBridge& bridge() { return m_bridge; }
    const BootLoader& bootLoader() const { return m_model.getBootLoader(); }
    const FirmwareFaults& met() const { return m_met; }
    std::chrono::nanoseconds lastFault() const { return m_lastFault; }
    // Buffers that have come in since the last call and are not too short to be dispatched.
    std::size_t takeReceived();

    // How the flash differs from the images; empty when it does not.
    std::string difference(const Bytes& main, const Bytes& servo) const;

private:
    void see(Bytes& packet);
    void meet(const FirmwarePacket& packet, Bytes& bytes);

    PanelModel m_model;
    PanelBridge m_bridge;
    FaultSource m_faults;
    FirmwareFaults m_met;
    unsigned int m_packets = 0;
    std::size_t m_received = 0;
    std::chrono::nanoseconds m_lastFault{0};
};

} // namespace Vantor::Test
