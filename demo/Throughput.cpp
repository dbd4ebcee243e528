#include "demo/Throughput.h"

#include "demo/DemoRecords.h"
#include "panelctl/command/Delivery.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Wording.h"
#include "protocol/PacketHeader.h"

#include <algorithm>
#include <utility>

namespace Vantor {

namespace {

using Clock = Session::Clock;

// Without a byte taken. A busy machine makes all slow, and that is no failure.
constexpr std::chrono::seconds patience{15};
constexpr std::chrono::microseconds readStep{50};

// A last packet under way is over when nothing more was counted for this long.
constexpr std::chrono::milliseconds quietTime{50};

bool areAllTaken(std::vector<Delivery>& deliveries)
{
    return std::all_of(deliveries.begin(), deliveries.end(), [](Delivery& delivery) { return delivery.isTaken(); });
}

// When the last byte was counted; throws Failure when that does not come about.
Clock::time_point awaitAll(Session& session, std::vector<Delivery>& deliveries, Clock::time_point start)
{
    std::uint64_t taken = 0;
    Clock::time_point lastChange = start;
    session.waitUntil(Clock::time_point::max(), readStep, [&] {
        std::uint64_t total = 0;
        for (Delivery& delivery : deliveries)
            total += delivery.getTakenBytes();
        const auto now = Clock::now();
        if (std::exchange(taken, total) != total)
            lastChange = now;
        return now - lastChange > patience || (now - lastChange > quietTime && areAllTaken(deliveries));
    });
    if (!areAllTaken(deliveries))
        throw Failure(ExitCode::TimedOut, "the panels have taken no record for " + formatSeconds(patience) +
                                              ".\nHas one stalled, or left? The demo needs all up to step 5.");
    return lastChange;
}

} // namespace

Throughput Throughput::measure(Session& session, std::uint32_t records)
{
    const std::vector<Panel> panels = session.getPanels();
    std::vector<Delivery> deliveries(panels.begin(), panels.end());
    const auto start = Clock::now();
    for (std::uint32_t number = 0; number < records; ++number)
        for (Delivery& delivery : deliveries)
            DemoRecords::give(delivery, number);
    const auto end = awaitAll(session, deliveries, start);

    Throughput all{records * deliveries.size(), 0, 0, std::chrono::duration<double>(end - start).count()};
    std::uint64_t recordBytes = 0;
    for (Delivery& delivery : deliveries) {
        recordBytes += delivery.getRecordBytes();
        all.bytes += delivery.getTakenBytes();
    }
    all.packets = (all.bytes - recordBytes) / sizeof(PacketHeader);
    return all;
}

} // namespace Vantor
