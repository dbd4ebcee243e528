#pragma once

#include "simulator/panelsim/PanelsimOptions.h"

namespace Vantor {

// `panelsim tell`: returns the exit code. Throws std::exception when there is no simulation
// to tell.
int tellSimulation(const PanelsimOptions& options);

} // namespace Vantor
