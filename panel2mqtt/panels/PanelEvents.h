#pragma once

#include "libMorvaneHostUsb/UsbManager.h"

#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace Vantor {

// Brings what the library tells, on its threads, to the gateway's. A callback waits for nothing
// but the taking of the events; records for which there is no room are dropped and counted.
//
// Threads: any. Lifetime: from before UsbManager::initialise until destroyUsbManager has returned.
class PanelEvents : public UsbManager::Observer, public UsbManager::SendObserver {
public:
    static constexpr std::size_t mostRecords = 4096;
    static constexpr std::size_t mostBytes = 16u << 20;

    struct Event {
        enum class Kind { Added, Removed, Record };

        Kind kind;
        std::uint16_t uid;
        PacketType type{};
        std::string payload;
    };
    struct Batch {
        std::vector<Event> events;
        std::set<std::uint16_t> sends; // the panels of which a send has ended
    };

    PanelEvents();
    ~PanelEvents() override;
    PanelEvents(const PanelEvents&) = delete;
    PanelEvents& operator=(const PanelEvents&) = delete;

    // Readable while there is something to take.
    int getSignal() const { return m_signal; }

    Batch take();

    std::uint64_t getDropped() const;

    void onDeviceAdded(std::uint16_t uid) override;
    void onDeviceRemoved(std::uint16_t uid) override;
    void onParsedPacket(std::uint16_t uid, const PacketType& type, const DataPacketUnion& data,
                        unsigned int length) override;
    void onSendEnded(std::uint16_t uid) override;

private:
    void add(Event event);

    const int m_signal;
    mutable std::mutex m_mutex;
    Batch m_batch MORVANE_GUARDED_BY(m_mutex);
    std::size_t m_records MORVANE_GUARDED_BY(m_mutex) = 0; // in m_batch
    std::size_t m_bytes MORVANE_GUARDED_BY(m_mutex) = 0;
    std::uint64_t m_dropped MORVANE_GUARDED_BY(m_mutex) = 0;
};

} // namespace Vantor
