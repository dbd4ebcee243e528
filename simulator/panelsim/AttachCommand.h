#pragma once

#include "simulator/panelsim/PanelsimOptions.h"

namespace Vantor {

// `panelsim attach`: returns the exit code. Throws std::exception when panelsim itself
// fails, or the kernel takes no panel.
int attachPanels(const PanelsimOptions& options);

} // namespace Vantor
