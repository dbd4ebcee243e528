#pragma once

#include "panelctl/terminal/Failure.h"

#include <string>

namespace Vantor {

// What panelfleet exits with; docs/panelfleet.md and the help text list them too.
enum class FleetExit : int {
    Success = 0,
    Failed = 1,
    Usage = 2,
    NothingSelected = 3,
    NoBroker = 4,
    PanelFailed = 5,
    NotAllThere = 6,
};

// Ends the program.
class FleetFailure final : public Failure {
public:
    FleetFailure(FleetExit code, const char* kind, const std::string& text)
        : Failure(static_cast<int>(code), kind, text)
    {}
};

} // namespace Vantor
