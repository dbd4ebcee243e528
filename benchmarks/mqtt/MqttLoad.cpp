// Loads for a gateway and for a broker: run by benchmarks/mqtt/run and benchmarks/mqtt/week.
// What the arguments are, Load.h says.
#include "benchmarks/mqtt/Load.h"

#include <cstdio>
#include <exception>
#include <map>

using namespace Vantor;

int main(int argc, char** argv)
{
    try {
        const std::map<std::string, void (*)(const Arguments&)> subjects{{"echo", runEcho},
                                                                         {"latency", measureLatency},
                                                                         {"paced", measurePaced},
                                                                         {"stream", runStream},
                                                                         {"through", measureThrough},
                                                                         {"broker", measureBroker},
                                                                         {"sessions", measureSessions},
                                                                         {"week", runWeek}};
        const auto subject = subjects.find(argc > 1 ? argv[1] : "");
        if (subject == subjects.end()) {
            std::fputs("usage: mqttLoad SUBJECT ARGUMENT...\n", stderr);
            return 2;
        }
        subject->second(Arguments(argv + 2, argv + argc));
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "mqttLoad: %s\n", failure.what());
        return 1;
    }
}
