#pragma once

#include "libMorvaneHostUsb/ManagerStatistics.h"
#include "libMorvaneHostUsb/ThreadAnnotations.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

namespace Vantor {

class DeviceCounters;
class PriorityPacker;
class UsbMessageQueue;

// What a manager's devices have counted, those included that are no more.
//
// Threads: every operation from any thread. Lifetime: shared by the manager and its devices'
// counters.
class StatisticsBook {
public:
    // What is counted here itself.
    enum class Event { Arrival, Departure, Dead, Stray, Pass };
    void count(Event event, std::uint64_t times = 1);

    // Whose messages wait; null for none.
    void setQueue(std::shared_ptr<UsbMessageQueue> queue);

    // For DeviceCounters: a device comes, its packer goes, and at last its counters.
    void open(DeviceCounters& counters, const PriorityPacker& packer);
    void leavePacker(DeviceCounters& counters);
    void close(DeviceCounters& counters);

    ManagerStatistics read() const;

private:
    mutable std::mutex m_mutex;
    ManagerStatistics m_past MORVANE_GUARDED_BY(m_mutex); // its devices are those whose counters are no more
    std::map<DeviceCounters*, const PriorityPacker*> m_present MORVANE_GUARDED_BY(m_mutex);
    std::shared_ptr<UsbMessageQueue> m_queue MORVANE_GUARDED_BY(m_mutex);
};

} // namespace Vantor
