#pragma once

#include "panelctl/command/Command.h"
#include "panelctl/command/WatchReports.h"
#include "panelctl/session/Session.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>

namespace Vantor {

// `panelctl watch`: one line for each arrival, departure, packet, and what is none.
class WatchCommand : public Command {
public:
    struct Options {
        std::optional<std::chrono::nanoseconds> duration; // without: no end
        std::optional<std::uint64_t> count;               // packets
        std::size_t shownBytes = SIZE_MAX;                // of a payload
        std::optional<std::string> panel;                 // this one alone
        std::set<PacketType> types;                       // packets of these alone; empty for all
        bool hasStatistics = false;                       // at the end
    };

    explicit WatchCommand(const Options& options) : m_options(options) {}
    void run(Session& session, Output& output) override;
    bool wantsPackets() const override { return true; }

private:
    void choosePanel(const Session& session);
    void watch(Session& session, Output& output);
    void take(const PanelEvent& event, const Session& session, Output& output);
    void takeArrival(const PanelEvent& event, const Session& session, Output& output);
    void print(const PanelEvent& event, Output& output);
    void summarise(const Session& session, Output& output) const;
    bool isWanted(const PanelEvent& event) const;

    Options m_options;
    Session::Clock::time_point m_start;
    WatchCounts m_counts;
    std::set<std::uint16_t> m_present; // those that were said to have arrived

    // Of the panel to watch, when it is one alone: the place keeps, the uid may not.
    std::string m_place;
    std::set<std::uint16_t> m_uids; // that it has had
};

} // namespace Vantor
