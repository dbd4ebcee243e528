#pragma once

#include <string>

namespace Vantor {

class Output;

// A question to whoever sits at the terminal.
namespace Question {

// Whether there is somebody: both standard input and standard output are terminals.
bool isPossible(const Output& output);

// Prints `text` with " [y/N] " and waits for a line; true for y or yes. Throws Interrupted.
bool isAnsweredYes(Output& output, const std::string& text);

} // namespace Question

} // namespace Vantor
