#pragma once

#include "libMorvaneHostUsb/DeviceStatistics.h"

#include <cstdint>

namespace Vantor {

// All panels of a manager, from its beginning to now; a copy. Each panel's part is of one
// instant, as DeviceStatistics, but not all of them of the same.
struct ManagerStatistics {
    // The sums over all devices that were, those that have gone included. Of `most` it is the
    // greatest of any one device; `now` has what waits in a device that has gone, as long as
    // the application holds it.
    DeviceStatistics devices;

    std::uint64_t arrivals = 0;       // devices taken up, stray ones included
    std::uint64_t departures = 0;     // devices retired, those that closeAllDevices closed included
    std::uint64_t dead = 0;           // found dead by the registry check, though the panel had not left
    std::uint64_t stray = 0;          // taken up by the registry check: nobody had announced them
    std::uint64_t waitingBuffers = 0; // received and not yet given to the parser; all panels', now

    // Passes of the worker: one in 1.05 s at the least, unless something makes it wait: a callback
    // or log sink that blocks, or devices whose transfers do not come back, for up to 1.25 s each.
    std::uint64_t passes = 0;
};

} // namespace Vantor
