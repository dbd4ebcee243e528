#pragma once

#include "libMorvaneHostUsb/ThreadAnnotations.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>

struct libusb_transfer;

namespace Vantor {

// Which transfers libusb holds: submitted, and their completion callback not yet
// returned. In-progress flags can't tell, because a completion is dropped once
// its device has left the registry.
//
// Threads: every operation from any thread; its mutex is a leaf.
// Lifetime: one per process, never destroyed.
class TransferAccount {
public:
    static TransferAccount& instance();

    void raise(const libusb_transfer* transfer);  // before the submission
    void lower(const libusb_transfer* transfer);  // failed, or completed; unknown transfers are ignored
    void forget(const libusb_transfer* transfer); // before it is freed

    bool isHeld(const libusb_transfer* transfer);

    // Until something is lowered, `timeout` at most.
    void waitForChange(std::chrono::milliseconds timeout);

private:
    TransferAccount() = default;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    // An entry stays at 0 until it is forgotten: sending allocates nothing.
    std::map<const libusb_transfer*, unsigned int> m_held MORVANE_GUARDED_BY(m_mutex);
};

} // namespace Vantor
