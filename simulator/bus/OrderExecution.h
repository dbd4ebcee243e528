#pragma once

#include "simulator/bus/PanelOrder.h"
#include "simulator/panel/PanelModel.h"

#include <cstddef>
#include <optional>
#include <string>

namespace Vantor {

// What commands mean on every bus. Pure.
namespace OrderExecution {

unsigned int panelOf(const PanelOrder& command);

// As the log has it, without the panel: "fault out stall once".
std::string describe(const PanelOrder& command);

// Whether a panel that is not plugged is worth a complaint: a fault that meets nobody and
// an emission by nobody are somebody's mistake; a panel that leaves within a repeated
// emission, or with faults, is not.
bool needsPanel(const PanelOrder& command);

// Does it to the model of the plugged panel; nothing for plug and unplug, which are the
// bus's.
void carryOut(const PanelOrder& command, PanelModel& model);

// What is left of a repeated emission, to be carried out `every` later.
std::optional<EmitOrder> restOf(const PanelOrder& command);

} // namespace OrderExecution

// The log's words for what a panel has got; only the first bytes of a long one.
std::string describe(const PanelModel::Record& record);

// "1 byte", "2 bytes": as the log counts them.
std::string formatBytes(std::size_t number);

} // namespace Vantor
