#pragma once

#include "panelctl/command/Command.h"
#include "panelctl/session/Session.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>

namespace Vantor {

// `panelctl watch`: one line for each arrival, departure and packet.
class WatchCommand : public Command {
public:
    struct Options {
        std::optional<std::chrono::nanoseconds> duration; // without: no end
        std::optional<std::uint64_t> count;               // packets
        std::size_t shownBytes = SIZE_MAX;                // of a payload
    };

    explicit WatchCommand(const Options& options) : m_options(options) {}
    void run(Session& session, Output& output) override;
    bool wantsPackets() const override { return true; }

private:
    void watch(Session& session, Output& output);
    void print(const PanelEvent& event, const Session& session, Output& output);
    static void explainUnusable(std::uint16_t uid, const Session& session);
    void summarise(Output& output) const;

    Options m_options;
    Session::Clock::time_point m_start;
    std::uint64_t m_packets = 0;
    std::uint64_t m_arrivals = 0;
    std::uint64_t m_departures = 0;
    std::set<std::uint16_t> m_present; // those that were said to have arrived
};

} // namespace Vantor
