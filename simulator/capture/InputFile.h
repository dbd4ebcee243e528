#pragma once

#include <string>

namespace Vantor {

// Files that the simulator reads.
namespace InputFile {

// A descriptor to read from, below 0 with errno when there is none. A pipe's writer is
// waited for; a signal that ends the process does so then, too.
int open(const std::string& path);

} // namespace InputFile

} // namespace Vantor
