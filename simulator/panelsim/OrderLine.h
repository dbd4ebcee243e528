#pragma once

#include "simulator/bus/PanelOrder.h"

#include <string_view>

namespace Vantor {

// Orders as somebody gives them, a line each.
namespace OrderLine {

// Without the blanks around it, and without a remark, which '#' begins.
std::string_view contentOf(std::string_view line);

// As parsePanelOrder, of a panel that a bus can have.
ParsedOrder parse(std::string_view line);

} // namespace OrderLine

} // namespace Vantor
