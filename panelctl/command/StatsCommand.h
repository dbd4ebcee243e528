#pragma once

#include "panelctl/command/Command.h"
#include "panelctl/session/Session.h"

#include <chrono>
#include <optional>
#include <string>

namespace Vantor {

// `panelctl stats`: what the library counts while panelctl holds the panels.
class StatsCommand : public Command {
public:
    struct Options {
        std::optional<std::chrono::nanoseconds> every;    // without: once, at the end
        std::optional<std::chrono::nanoseconds> duration; // without: no end, or with no `every` at once
        std::optional<std::string> panel;                 // this one alone
        std::chrono::nanoseconds timeout{};               // at once: longest wait for what the panels say of themselves
    };

    explicit StatsCommand(const Options& options) : m_options(options) {}
    void run(Session& session, Output& output) override;

private:
    void awaitTraffic(Session& session) const;
    void listen(Session& session, Output& output);
    void report(const Session& session, Output& output) const;
    void complain(const Session& session, Output& output) const;

    Options m_options;
    std::optional<std::string> m_place; // of the panel that was chosen
    Session::Clock::time_point m_start;
};

} // namespace Vantor
