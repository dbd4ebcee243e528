#pragma once

#include "simulator/bus/PanelOrder.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace Vantor {

// What commands mean on every bus. Pure.
namespace OrderExecution {

unsigned int panelOf(const PanelOrder& command);

// As the log has it, without the panel: "fault out stall once".
std::string describe(const PanelOrder& command);

} // namespace OrderExecution

// "1 byte", "2 bytes": as the log counts them.
std::string formatBytes(std::size_t number);

// Two digits.
std::string formatHex(std::uint8_t byte);

} // namespace Vantor
