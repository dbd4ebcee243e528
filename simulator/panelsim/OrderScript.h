#pragma once

#include "simulator/bus/PanelOrder.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Vantor {

// What --script reads: lines of a time and an order. A log that --log has written is one,
// too: of its lines only the orders count.
namespace OrderScript {

// Without an order and without an error it is a line that orders nothing.
struct Line {
    std::optional<TimedOrder> order;
    std::string error;
};

// Pure. A time that begins with '+' counts from `previous`, the time of the order before.
Line parseLine(std::string_view line, std::chrono::nanoseconds previous);

// Throws std::runtime_error for a file that can't be read, and for the first line that is
// wrong, with its number.
std::vector<TimedOrder> read(const std::string& path);

} // namespace OrderScript

} // namespace Vantor
