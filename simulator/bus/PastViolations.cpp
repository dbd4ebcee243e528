#include "simulator/bus/PastViolations.h"

namespace Vantor {

void PastViolations::append(unsigned int panel, const PanelModel& model, std::vector<std::string>& lines)
{
    for (const std::string& violation : model.getViolations())
        lines.push_back("panel " + std::to_string(panel) + ": " + violation);
}

void PastViolations::keep(unsigned int panel, const PanelModel& model)
{
    if (m_lines.size() > PanelModel::maxViolations)
        return;
    append(panel, model, m_lines);
    if (m_lines.size() <= PanelModel::maxViolations)
        return;
    m_lines.resize(PanelModel::maxViolations);
    m_lines.emplace_back("further violations of panels that were plugged back are not listed");
}

const std::vector<std::string>& PastViolations::getLines() const
{
    return m_lines;
}

} // namespace Vantor
