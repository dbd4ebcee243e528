#pragma once

#include "simulator/panelsim/PanelsimOptions.h"

namespace Vantor {

// `panelsim run`: returns the exit code. Throws std::exception when panelsim itself fails.
int runProgram(const PanelsimOptions& options);

} // namespace Vantor
