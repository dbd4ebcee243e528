#pragma once

#include "panelctl/command/Command.h"
#include "panelctl/doctor/SystemFacts.h"

#include <chrono>

namespace Vantor {

// `panelctl doctor`: why no panel can be used.
class DoctorCommand : public Command {
public:
    struct Options {
        std::chrono::nanoseconds timeout{}; // longest wait for what the panels say of themselves
        SystemPlaces places;
    };

    explicit DoctorCommand(const Options& options) : m_options(options) {}
    void run(Session& session, Output& output) override;

private:
    DoctorFacts gather(Session& session) const;

    const Options m_options;
};

} // namespace Vantor
