#pragma once

#include "panelctl/terminal/Interrupt.h"
#include "panelctl/terminal/Output.h"
#include "panelfleet/CommandLine.h"
#include "panelfleet/FleetClient.h"
#include "panelfleet/FleetFailure.h"
#include "panelfleet/rollout/Rollout.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Vantor {

struct BrokerSettings;
struct FleetImage;

// One command of the program, from the connection to its end.
//
// Threads: one. Lifetime: the program's.
class FleetRun {
public:
    using Clock = Rollout::Clock;

    static constexpr std::chrono::seconds tellingPatience{15}; // nothing comes meanwhile
    static constexpr std::chrono::minutes brokerPatience{5};   // for a connection that was lost

    FleetRun(const CommandLine& line, Output& output, const Interrupt& interrupt);

    // Throws Failure, and Interrupted.
    FleetExit run(const BrokerSettings& settings);

private:
    using Reports = std::vector<std::unique_ptr<Report>>;

    FleetExit list();
    FleetExit showStatus();
    FleetExit flash(const FleetImage& image);
    FleetExit rehearse(Rollout& rollout);
    void rollOut(Rollout& rollout, const FleetImage& image);

    void awaitTelling();
    void noteLeftOut();
    void wait(std::chrono::milliseconds time);
    void take(FleetClient::News news, Rollout& rollout);
    void checkBroker(const Rollout& rollout);
    void checkSignal(Rollout& rollout);
    void command(Rollout& rollout, const FleetImage& image);
    void tellChanges(Rollout& rollout);
    FleetExit summarise(const Rollout& rollout, Clock::time_point now);
    std::string explainEnd(const Rollout& rollout) const;
    void tell(const Reports& reports);
    void note(const std::string& text);

    const CommandLine& m_line;
    Output& m_output;
    const Interrupt& m_interrupt;
    std::optional<FleetClient> m_client;
    std::optional<Clock::time_point> m_lostSince;
    std::string m_lostReason;
    int m_signal = 0; // that has come
};

} // namespace Vantor
