#pragma once

#include "benchmarks/link/Measurement.h"
#include "libMorvaneHostUsb/UsbManager.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

namespace Vantor {

// The library in use, from its start to its end, by an application that counts.
//
// Threads: the getters from any thread; the functions given run where the library calls.
// Lifetime: one at a time.
class LibraryLink : private UsbManager::Observer {
public:
    struct Use {
        std::function<void(UsbDevice&)> arrived;
        std::function<void(PacketType)> received;
    };

    explicit LibraryLink(Use use = {});
    ~LibraryLink() override;
    LibraryLink(const LibraryLink&) = delete;
    LibraryLink& operator=(const LibraryLink&) = delete;

    // Waits until so many panels have been announced and have told their packet limits, for
    // which it asks, rather than wait until the library does.
    void awaitPacketLimits(std::uint64_t panels);

    // The first panel.
    std::shared_ptr<UsbDevice> getPanel() const;

    Clock::time_point getStartTime() const { return m_start; } // of initialise
    Tally& getArrived() { return m_arrived; }                  // panels announced
    Tally& getRecords() { return m_records; }                  // without device informations

private:
    void onDeviceAdded(std::uint16_t uid) override;
    void onDeviceRemoved(std::uint16_t uid) override;
    void onParsedPacket(std::uint16_t uid, const PacketType& type, const DataPacketUnion& data,
                        unsigned int length) override;

    Use m_use;
    UsbManager* m_manager;
    Clock::time_point m_start;
    Tally m_arrived;
    Tally m_records;
    Tally m_informations;
};

} // namespace Vantor
