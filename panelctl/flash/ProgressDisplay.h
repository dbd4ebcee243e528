#pragma once

#include "panelctl/flash/FirmwareImages.h"
#include "panelctl/flash/ProgressMeter.h"
#include "panelctl/terminal/StatusLine.h"

#include <optional>
#include <string>

namespace Vantor {

class Output;

// The progress of an upgrade on standard output: a bar on a terminal, which is gone
// afterwards, and a line for each 5 % elsewhere.
class ProgressDisplay {
public:
    ProgressDisplay(Output& output, const FirmwareImages& images);

    // Shows what has been written until now; `silence` is the time since the last reply.
    void update(ProgressMeter::Time now, std::uint32_t bytes, std::chrono::nanoseconds silence);

private:
    void printSteps();

    Output& m_output;
    const FirmwareImages& m_images;
    ProgressMeter m_meter;
    unsigned int m_nextStep; // percentage of the next line
    std::optional<StatusLine> m_line;
};

} // namespace Vantor
