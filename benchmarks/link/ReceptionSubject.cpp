// Records that panels send by themselves.
#include "benchmarks/link/BareLink.h"
#include "benchmarks/link/LibraryLink.h"
#include "benchmarks/link/PanelPacket.h"
#include "benchmarks/link/Subjects.h"

#include <stdexcept>
#include <thread>

namespace Vantor {

namespace {

constexpr std::chrono::milliseconds settling{200};
constexpr std::uint64_t waves = 4; // as benchmarks/link/run orders them

struct Result {
    Samples rate; // records a second
    Samples cpu;  // a record
};

// The panels are there and have said nothing yet; when they begin is up to them.
Result count(Tally& records, std::uint64_t expected)
{
    std::this_thread::sleep_for(settling);
    if (records.get() != 0)
        throw std::runtime_error("the panels have begun too early");
    Result result;
    for (std::uint64_t wave = 0; wave < waves; ++wave) {
        // Not from the end of the one before: there may be a pause.
        records.await(expected * wave / waves + 1, "records");
        const Clock::time_point start = Clock::now();
        const Cost cost = Cost::now();
        const std::uint64_t before = records.get();
        records.await(expected * (wave + 1) / waves, "records");
        const auto counted = static_cast<double>(records.get() - before);
        result.rate.add(counted / microsecondsSince(start) * 1e6);
        result.cpu.add(Cost::since(cost).cpu / counted);
    }
    return result;
}

Result countByLibrary(std::uint64_t panels, std::uint64_t expected)
{
    LibraryLink link;
    link.getArrived().await(panels, "panels");
    return count(link.getRecords(), expected);
}

Result countBare(std::uint64_t panels, std::uint64_t expected)
{
    Tally records;
    BareLink link({{}, [&records](const unsigned char* bytes, int size) {
                       records.add(PanelPacket::countRecords(bytes, static_cast<std::size_t>(size)));
                   }});
    link.getArrived().await(panels, "panels");
    return count(records, expected);
}

} // namespace

void measureReception(const Arguments& arguments)
{
    Report report("receive");
    const std::uint64_t panels = std::stoull(arguments.at(0));
    const std::uint64_t expected = std::stoull(arguments.at(1));
    const bool isOurs = arguments.at(2) == library.name;
    const Contender& contender = isOurs ? library : bareLoop;
    const Result result = (isOurs ? countByLibrary : countBare)(panels, expected);
    const std::string& name = arguments.at(3);
    const std::string note = std::to_string(expected) + " records of 32 bytes";
    report.add("CPU of a record, " + name, contender, result.cpu, "us", note);
    report.add("records a second, " + name, contender, result.rate, "1/s", note);
}

} // namespace Vantor
