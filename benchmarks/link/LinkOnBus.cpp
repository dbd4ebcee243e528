// The library with simulated panels, beside a bare loop over the same libusb calls: run by
// benchmarks/link/run, under panelsim. What the arguments are, Subjects.h says.
#include "benchmarks/link/Subjects.h"
#include "libMorvaneHostUsb/Log.h"

#include <cstdio>
#include <exception>
#include <map>

using namespace Vantor;

int main(int argc, char** argv)
{
    try {
        const std::map<std::string, void (*)(const Arguments&)> subjects{
            {"throughput", measureThroughput}, {"latency", measureLatency},   {"start", measureStart},
            {"arrival", measureArrival},       {"firmware", measureFirmware}, {"idle", measureIdle},
            {"receive", measureReception}};
        setLogLevel(LogLevel::Error);
        const auto subject = subjects.find(argc > 1 ? argv[1] : "");
        if (subject == subjects.end()) {
            std::fputs("usage: linkOnBus SUBJECT ARGUMENT...\n", stderr);
            return 2;
        }
        subject->second(Arguments(argv + 2, argv + argc));
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "linkOnBus: %s\n", failure.what());
        return 1;
    }
}
