#pragma once

#include "panelctl/command/Command.h"
#include "panelctl/doctor/SystemFacts.h"

#include <chrono>
#include <vector>

namespace Vantor {

// `panelctl doctor`: why no panel can be used.
class DoctorCommand : public Command {
public:
    struct Options {
        std::chrono::nanoseconds timeout{}; // longest wait for what the panels say of themselves
        SystemPlaces places;
    };

    explicit DoctorCommand(const Options& options) : m_options(options) {}
    void beforeStart() override;
    void run(Session& session, Output& output) override;
    bool runWithoutLibrary(const NoLibusb& failure, Output& output) override;

private:
    DoctorFacts gather(Session& session) const;
    static void conclude(const DoctorFacts& facts, Output& output);

    const Options m_options;
    std::vector<PanelFacts> m_atStart; // the library has had its time for these alone
};

} // namespace Vantor
