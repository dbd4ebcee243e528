#pragma once

#include "panelctl/doctor/Ailment.h"

#include <optional>
#include <string>
#include <vector>

namespace Vantor {

// The result of one check.
struct Finding {
    enum class Severity {
        Ok,
        Unknown, // could not be looked at
        Warning, // panels can be used all the same
        Error,   // keeps a panel from being used
    };

    Severity severity;
    const char* check;                 // what was looked at, for programs: "rule"
    std::optional<Ailment> ailment;    // of warnings and errors
    std::string place;                 // of the panel; empty: it is the machine's
    std::string text;                  // what was found, a line
    std::string reason;                // why that is a problem; lines separated by newlines
    std::vector<std::string> commands; // that mend it
};

} // namespace Vantor
