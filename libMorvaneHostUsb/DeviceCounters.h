#pragma once

#include "libMorvaneHostUsb/DeviceFailure.h"
#include "libMorvaneHostUsb/DeviceStatistics.h"
#include "libMorvaneHostUsb/ThreadAnnotations.h"

#include <memory>
#include <mutex>

namespace Vantor {

class PriorityPacker;
class StatisticsBook;

// What is counted of one device beside what its packer counts, and why it ended.
//
// Threads: every operation from any thread; its mutex is a leaf.
// Lifetime: shared by the device and what it has received, as that is counted when it is
// parsed. The last of them enters the counts into the manager's book.
class DeviceCounters {
public:
    DeviceCounters() = default;
    ~DeviceCounters();
    DeviceCounters(const DeviceCounters&) = delete;
    DeviceCounters& operator=(const DeviceCounters&) = delete;

    // The device belongs to a manager now. `packer` stays until `leave`, which may come without.
    void enter(std::shared_ptr<StatisticsBook> book, const PriorityPacker& packer);
    void leave();

    template <typename Change> void change(Change change)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        change(m_statistics);
    }

    // Without the packer's, as long as it is there.
    DeviceStatistics read() const;

    // The first reason stays.
    void fail(DeviceFailure::Operation operation, int code);
    DeviceFailure getFailure() const;

private:
    // Set before any other thread can know the device.
    std::shared_ptr<StatisticsBook> m_book;

    mutable std::mutex m_mutex;
    DeviceStatistics m_statistics MORVANE_GUARDED_BY(m_mutex);
    DeviceFailure m_failure MORVANE_GUARDED_BY(m_mutex);
};

} // namespace Vantor
