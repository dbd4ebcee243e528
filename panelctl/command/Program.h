#pragma once

#include "panelctl/terminal/Output.h"

#include <functional>

namespace Vantor {

class Command;
class Interrupt;

// The frame of a program that drives panels: calls `body` and turns what it throws into a
// message and an exit code, which is returned. By then the library has been shut down.
int runProgram(const std::function<void(Output&, const Interrupt&)>& body, Output::Form form = Output::Form::Text);

// Runs the command with the library at this level of its log.
void runCommand(Command& command, int level, Output& output, const Interrupt& interrupt);

} // namespace Vantor
