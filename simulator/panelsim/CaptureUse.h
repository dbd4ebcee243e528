#pragma once

#include "simulator/bus/PanelBus.h"
#include "simulator/panelsim/PanelsimOptions.h"
#include "simulator/replay/RecordComparison.h"
#include "simulator/replay/RecordedSession.h"
#include "simulator/replay/Replay.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Vantor {

// What --replay and --expect do. Nothing without them.
//
// Threads: one at a time. Lifetime: outlives the bus; the options outlive it.
class CaptureUse {
public:
    using Complain = std::function<void(const std::string& line)>;

    // Reads the captures, and complains of what a user should know of them. Throws
    // std::runtime_error for one that is of no use.
    CaptureUse(const PanelsimOptions& options, const Complain& complain);

    // `tell` hears what happens meanwhile, from any thread.
    void setUp(PanelBus::Options& bus, const Replay::Tell& tell);

    // To be plugged in first; none that say so when nothing is replayed.
    std::optional<std::vector<unsigned int>> getFirstPanels() const;

    // Whether the host has sent what was expected; complains of what it has not, and of
    // what was not replayed.
    bool finish(PanelBus& bus, const Complain& complain) const;

private:
    void report(std::vector<std::string>& rest, std::vector<std::string>& differences) const;

    const PanelsimOptions& m_options;
    std::optional<RecordedSession> m_replayed;
    std::optional<RecordedSession> m_expected;
    std::shared_ptr<Replay> m_replay;               // null when nothing is replayed
    std::unique_ptr<RecordComparison> m_comparison; // null when nothing is compared
};

} // namespace Vantor
