#pragma once

#include "panelctl/session/Panel.h"
#include "panelctl/session/Session.h"

#include <cstddef>
#include <vector>

namespace Vantor {

// Sends records to one panel one at a time and takes the time of each: from the
// call of addStructData until the panel's byte counter shows that it was taken.
// The counter is read every 50 µs, as precisely as the system sleeps.
class LatencyMeter {
public:
    LatencyMeter(std::size_t records, std::size_t payload);

    // Throws Failure when the panel leaves or does not take a record.
    void measure(Session& session, const Panel& panel);

    // The time within which this share of the records was taken, in milliseconds.
    double getPercentile(double share) const;

private:
    std::size_t m_records;
    std::size_t m_payload;
    std::vector<double> m_times; // milliseconds, ascending
};

} // namespace Vantor
