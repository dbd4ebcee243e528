#pragma once

#include "simulator/panel/PanelModel.h"

#include <string>
#include <vector>

namespace Vantor {

// What panels of a bus have seen that are no more: of all together no more lines than one
// panel has.
//
// Threads: one at a time.
class PastViolations {
public:
    // The panel's lines behind the others, each with its number.
    static void append(unsigned int panel, const PanelModel& model, std::vector<std::string>& lines);

    void keep(unsigned int panel, const PanelModel& model);
    const std::vector<std::string>& getLines() const;

private:
    std::vector<std::string> m_lines;
};

} // namespace Vantor
