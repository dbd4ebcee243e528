#pragma once

#include "tests/link/firmware/FaultyPanel.h"
#include "tests/support/DeviceRig.h"

#include "protocol/PackedPacketParser.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace Vantor::Test {

// The real device on the scripted libusb, with a simulated panel behind it, in virtual
// time: upgrades with faults, from beginning to end.
//
// The worker and the receive thread are played: a pass ends when something has happened,
// when the upgrade's next step is due, or after 1.05 s; then the device is polled. What was
// received is handled before that, or wakes the worker again.
class UpgradeRun : public DeviceRig, private PackedPacketParser::Observer {
public:
    struct Options : FaultyPanel::Options {
        bool pollFirst = false; // the worker is quicker than the receive thread
    };

    // What an upgrade came to. Empty when all is as it should be.
    using Outcome = std::string;

    explicit UpgradeRun(const Options& options);
    ~UpgradeRun() override;

    // Until the upgrade has ended, or for `limit` of virtual time after the last fault.
    // What is under way then comes before it returns.
    Outcome run(const FaultyPanel::FaultSource& faults, std::chrono::nanoseconds limit);
    Outcome run(const FirmwareFaults& faults, std::chrono::nanoseconds limit = std::chrono::minutes(2));

    // Another pair of images for the next run, on the same device and panel.
    void setImages(const Bytes& main, const Bytes& servo);

    const FirmwareFaults& met() const { return m_panel.met(); }
    const BootLoader& bootLoader() const { return m_panel.bootLoader(); }
    std::uint32_t progress() const { return m_progress; } // bytesWritten, as last reported in the upgrade
    std::chrono::nanoseconds duration() const { return m_duration; }

private:
    void pass();
    std::chrono::nanoseconds longestWait() const;
    bool receive();
    Outcome outcome() const;
    void handleParsedPacket(unsigned short deviceId, const PacketType& type, const DataPacketUnion& data,
                            unsigned int size) override;

    Options m_options;
    FaultyPanel m_panel;
    PackedPacketParser m_parser;
    std::chrono::nanoseconds m_duration{0};
    std::uint32_t m_progress = 0;
};

} // namespace Vantor::Test
