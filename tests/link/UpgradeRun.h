#pragma once

#include "tests/link/FirmwareFault.h"
#include "tests/link/FirmwareRig.h"
#include "tests/support/PanelBridge.h"

#include "protocol/PackedPacketParser.h"

#include <chrono>
#include <functional>
#include <memory>
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

// The real device on the scripted libusb, with a simulated panel behind it, in virtual
// time: upgrades with faults, from beginning to end.
//
// The worker and the receive thread are played: a pass ends when something has happened
// or after 1.05 s, then the device is polled; what was received is handled before that.
class UpgradeRun : public DeviceRig, private PackedPacketParser::Observer {
public:
    struct Options {
        Bytes main;
        Bytes servo;
        std::chrono::nanoseconds chunkTime = std::chrono::milliseconds(110);
        std::uint16_t maxPacketSize = 8192;
        // A chunk without an announcement is not answered, instead of "failed, send again".
        bool silentWithoutRequest = false;
        bool pollFirst = false; // the worker is quicker than the receive thread
    };

    // What an upgrade came to. Empty when all is as it should be.
    using Outcome = std::string;

    // Called for every firmware packet.
    using FaultSource = std::function<std::optional<FirmwareFault>(const FirmwarePacket&)>;

    explicit UpgradeRun(const Options& options);
    ~UpgradeRun() override;

    // Until the upgrade has ended, or for `limit` of virtual time after the last fault.
    Outcome run(const FaultSource& faults, std::chrono::nanoseconds limit);
    Outcome run(const FirmwareFaults& faults, std::chrono::nanoseconds limit = std::chrono::minutes(2));

    // Another pair of images for the next run, on the same device and panel.
    void setImages(const Bytes& main, const Bytes& servo);

    const FirmwareFaults& met() const { return m_met; }
    const BootLoader& bootLoader() const { return m_model.getBootLoader(); }
    std::uint32_t progress() const { return m_progress; } // bytesWritten, as last reported
    std::chrono::nanoseconds duration() const { return m_duration; }

private:
    void pass();
    void advance();
    void receive();
    void see(Bytes& packet);
    void meet(const FirmwarePacket& packet, Bytes& bytes);
    void filter(Bytes& bytes) const;
    Outcome outcome() const;
    void handleParsedPacket(unsigned short deviceId, const PacketType& type, const DataPacketUnion& data,
                            unsigned int size) override;

    Options m_options;
    PanelModel m_model;
    PanelBridge m_bridge;
    PackedPacketParser m_parser;
    FaultSource m_faults;
    FirmwareFaults m_met;
    unsigned int m_packets = 0;
    std::chrono::nanoseconds m_lastPass{0};
    std::chrono::nanoseconds m_lastFault{0};
    std::chrono::nanoseconds m_duration{0};
    std::uint32_t m_progress = 0;
};

} // namespace Vantor::Test
