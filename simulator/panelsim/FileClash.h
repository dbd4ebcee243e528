#pragma once

#include "simulator/panelsim/PanelsimOptions.h"

namespace Vantor {

// Files that one option would write over another's, whatever their names: they are the same
// device and inode, or would be the same file once it is made. What is no ordinary file (a
// terminal, /dev/null) can serve several.
namespace FileClash {

// Opens nothing. Throws std::runtime_error for the first clash.
void refuse(const PanelsimOptions& options);

} // namespace FileClash

} // namespace Vantor
