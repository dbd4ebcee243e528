#pragma once

#include "demo/DemoAccounts.h"
#include "demo/LoadStream.h"
#include "panelctl/session/Session.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace Vantor {

class Output;

// All panels under load while one is unplugged and plugged back, by whoever does
// that; then the load goes on for a while, and ends when everything is taken.
class UnplugScene {
public:
    static constexpr std::chrono::seconds patience{20}; // for the departure, and for the return

    // Times are printed from `start` on.
    UnplugScene(Session& session, Output& output, DemoAccounts& accounts, Session::Clock::time_point start);

    // Throws Failure when a panel that stays does not take what it was given.
    void play();

private:
    enum class Act {
        BeforeDeparture,
        Away,        // and not back yet
        Unannounced, // back, without its information
        Back,
    };

    void load();
    void handle(const PanelEvent& event);
    void handleDeparture(std::uint16_t uid);
    void handleArrival(std::uint16_t uid);
    void handleInformation(std::uint16_t uid);
    void finish();
    void settle(std::uint16_t uid);
    void report(const std::string& text) const;
    std::string describeLoad() const;

    Session& m_session;
    Output& m_output;
    DemoAccounts& m_accounts;
    Session::Clock::time_point m_start;
    Session::Clock::time_point m_deadline;
    Act m_act = Act::BeforeDeparture;
    std::map<std::uint16_t, LoadStream> m_streams; // by uid
};

} // namespace Vantor
