#pragma once

#include "packaging/completion/OrderPlaces.h"
#include "packaging/completion/ProgramShape.h"

#include <vector>

namespace Vantor {

// The rest of a program that writes how a shell completes a command line:
//   ... SHELL FILE...
// What there is to complete goes to standard output, then the files, in which PROGRAM stands
// for the name of the program that is completed. The exit code.
int writeCompletionFile(const ProgramShape& program, const std::vector<OrderPlaces>& orders, int argc, char** argv);

} // namespace Vantor
