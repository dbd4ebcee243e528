// How long it takes until attached panels are announced, until one that is plugged in is,
// and until all is closed.
#include "benchmarks/link/BareLink.h"
#include "benchmarks/link/LibraryLink.h"
#include "benchmarks/link/PanelPacket.h"
#include "benchmarks/link/Subjects.h"

#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <thread>

namespace Vantor {

namespace {

constexpr std::chrono::milliseconds settling{100};
const unsigned char s_greeting[1]{};

struct Result {
    Samples start;
    Samples stop;
};

template <typename Link> void measureOnce(unsigned int panels, Result& result)
{
    auto link = std::make_unique<Link>(typename Link::Use{});
    link->getArrived().await(panels, "panels");
    result.start.add(microsecondsSince(link->getStartTime()) / 1e3);
    std::this_thread::sleep_for(settling);
    const Clock::time_point stop = Clock::now();
    link.reset();
    result.stop.add(microsecondsSince(stop) / 1e3);
}

void add(Report& report, const Contender& contender, unsigned int panels, const Result& result)
{
    const std::string behind = std::to_string(panels) + (panels == 1 ? " panel" : " panels");
    if (panels != 0)
        report.add("initialise to the last onDeviceAdded, " + behind, contender, result.start, "ms");
    report.add("stop, " + behind, contender, result.stop, "ms");
}

void awaitByLibrary(unsigned int panels)
{
    LibraryLink link(
        {[](UsbDevice& panel) { panel.getPacker().addStructData(s_greeting, sizeof s_greeting, PanelPacket::type); },
         {}});
    link.getArrived().await(panels, "panels");
    std::this_thread::sleep_for(settling);
}

void awaitBare(unsigned int panels)
{
    std::uint64_t greeted = 0; // on the event thread
    std::atomic<BareLink*> self{nullptr};
    BareLink link({[&](unsigned char* buffer) {
                       if (self == nullptr || greeted == self.load()->getArrived().get())
                           return 0;
                       ++greeted;
                       return PanelPacket::write(buffer, PanelPacket::type, s_greeting, sizeof s_greeting, 1);
                   },
                   {}});
    self = &link;
    link.getArrived().await(panels, "panels");
    std::this_thread::sleep_for(settling);
}

// Milliseconds from each panel's plugging to its first record, by panelsim's own clock.
Samples readLog(const std::string& name)
{
    std::ifstream log(name);
    std::map<std::string, double> plugged;
    Samples samples;
    for (std::string line; std::getline(log, line);) {
        std::istringstream words(line);
        double time = 0;
        std::string panel;
        std::string number;
        std::string what;
        words >> time >> panel >> number >> what;
        if (what == "plug,")
            plugged[number] = time;
        else if (what == "record" && plugged.count(number) != 0)
            samples.add((time - plugged.extract(number).mapped()) * 1e3);
    }
    return samples;
}

} // namespace

void measureStart(const Arguments& arguments)
{
    Report report("start");
    const auto panels = static_cast<unsigned int>(std::stoul(arguments.at(0)));
    const unsigned long rounds = std::stoul(arguments.at(1));
    Result ours;
    Result bare;
    for (unsigned long round = 0; round < rounds; ++round) {
        measureOnce<LibraryLink>(panels, ours);
        measureOnce<BareLink>(panels, bare);
    }
    add(report, library, panels, ours);
    add(report, bareLoop, panels, bare);
}

void measureArrival(const Arguments& arguments)
{
    Report report("start");
    const auto panels = static_cast<unsigned int>(std::stoul(arguments.at(0)));
    const bool isOurs = arguments.at(2) == library.name;
    (isOurs ? awaitByLibrary : awaitBare)(panels);
    report.add("plug to the first record from onDeviceAdded", isOurs ? library : bareLoop, readLog(arguments.at(1)),
               "ms", "a panel each; most of it is umockdev's");
}

} // namespace Vantor
