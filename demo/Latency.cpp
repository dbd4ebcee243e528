#include "demo/Latency.h"

#include "demo/DemoRecords.h"
#include "panelctl/command/Delivery.h"
#include "panelctl/session/Session.h"

#include <algorithm>

namespace Vantor {

Latency Latency::measure(Session& session, const Panel& panel, std::size_t records, std::size_t payloadBytes)
{
    constexpr std::chrono::seconds limit{10}; // for one record
    const std::vector<std::uint8_t> payload(payloadBytes);
    std::vector<double> times;
    while (times.size() < records) {
        Delivery delivery(panel);
        const auto start = Session::Clock::now();
        delivery.add(DemoRecords::queuedTypes[0], std::nullopt, payload);
        delivery.await(session, limit, "\nThe demo needs it up to step 5.");
        times.push_back(std::chrono::duration<double, std::milli>(Session::Clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    return {times[records / 2], times[records * 99 / 100], times.back()};
}

} // namespace Vantor
