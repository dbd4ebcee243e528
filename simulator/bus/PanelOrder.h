#pragma once

#include "protocol/PacketType.h"
#include "simulator/panel/BootFault.h"
#include "simulator/panel/PanelFault.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace Vantor {

// The orders by which a running simulation is told what should happen; commands, to its
// user. Each is a line of the command language: explainPanelOrders.

struct PlugOrder {
    unsigned int panel;
};

struct UnplugOrder {
    unsigned int panel;
};

struct FaultOrder {
    unsigned int panel;
    PanelFault fault;
};

struct BootFaultOrder {
    unsigned int panel;
    BootFault fault;
};

struct ClearFaultsOrder {
    unsigned int panel;
};

// `count` packets with one record each, `every` apart, the first at once.
struct EmitOrder {
    unsigned int panel = 0;
    PacketType type{};
    std::vector<std::uint8_t> payload;
    unsigned int count = 1;
    std::chrono::nanoseconds every{0};
    bool isBegun = false; // what is left of a repeated emission; no words say that
};

// These bytes in place of a packet, whatever they are.
struct EmitRawOrder {
    unsigned int panel = 0;
    std::vector<std::uint8_t> bytes;
};

using PanelOrder =
    std::variant<PlugOrder, UnplugOrder, FaultOrder, BootFaultOrder, ClearFaultsOrder, EmitOrder, EmitRawOrder>;

struct TimedOrder {
    std::chrono::nanoseconds time; // after the start
    PanelOrder order;
};

// Without an order: `error` names the word that is wrong and what is allowed in its place.
struct ParsedOrder {
    std::optional<PanelOrder> order;
    std::string error;
};

// Pure; throw nothing but what exhausted memory throws.
ParsedOrder parsePanelOrder(std::string_view line);

// The line in its plainest form, which parses to the same order.
std::string formatPanelOrder(const PanelOrder& order);

// As the log has it, without the panel, and of an emission no more than type and size:
// "fault out stall once", "emit type 5, 1 byte", "emit raw, 9 bytes".
std::string describe(const PanelOrder& order);

// Whether a line may begin with this word.
bool isOrderVerb(std::string_view word);

unsigned int panelOf(const PanelOrder& order);

// For the help: what can be said, and what each word does. Whole lines.
std::string explainPanelOrders();

} // namespace Vantor
