// What panels that say nothing cost.
#include "benchmarks/link/BareLink.h"
#include "benchmarks/link/LibraryLink.h"
#include "benchmarks/link/Subjects.h"

#include <thread>

namespace Vantor {

namespace {

constexpr std::chrono::milliseconds settling{500};

Cost rest(unsigned int seconds)
{
    std::this_thread::sleep_for(settling);
    const Cost start = Cost::now();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    const Cost cost = Cost::since(start);
    return {cost.cpu / seconds, (cost.wakeups - 1) / seconds}; // one is this thread's
}

Cost restWithLibrary(unsigned int panels, unsigned int seconds)
{
    LibraryLink link;
    link.awaitPacketLimits(panels);
    return rest(seconds);
}

Cost restBare(unsigned int panels, unsigned int seconds)
{
    BareLink link({});
    link.getArrived().await(panels, "panels");
    return rest(seconds);
}

} // namespace

void measureIdle(const Arguments& arguments)
{
    Report report("idle");
    const auto panels = static_cast<unsigned int>(std::stoul(arguments.at(0)));
    const auto seconds = static_cast<unsigned int>(std::stoul(arguments.at(1)));
    const bool isOurs = arguments.at(2) == library.name;
    const Contender& contender = isOurs ? library : bareLoop;
    const Cost cost = (isOurs ? restWithLibrary : restBare)(panels, seconds);
    const std::string behind = ", " + std::to_string(panels) + (panels == 1 ? " panel" : " panels");
    const std::string note = "over " + std::to_string(seconds) + " s";
    report.add("CPU a second" + behind, contender, cost.cpu, "us", note);
    report.add("wake-ups a second" + behind, contender, cost.wakeups, "1/s",
               note + "; on the virtual bus each ioctl is one");
}

} // namespace Vantor
