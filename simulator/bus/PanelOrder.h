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

// The commands by which a running simulation is told what should happen, one a line:
//
//   plug [P]
//   unplug [P]
//   fault [P] out|in stall|silent|short=BYTES|status=ERRNO|delay=TIME [once|sticky]
//   fault [P] boot reply=CODE|lose|ignore|delay=TIME|duplicate|corrupt=OFFSET|unplug [skip=N] [once|sticky]
//   fault [P] clear
//   emit [P] type=T hex=HEX|size=N [count=C] [every=TIME]
//
// P is a panel's number from 0, 0 when it is left out; TIME is parseTime's, a plain number
// milliseconds; a fault is for once unless it is sticky. ERRNO is a name (EPROTO), CODE one or two hexadecimal digits,
// T 0 to 255; skip is 0 when left out; size=N stands for N bytes 0, 1, 2 … 255, 0 …; count is 1 and every 0 when left
// out. The words of emit's tail may come in any order.

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
    unsigned int panel;
    PacketType type;
    std::vector<std::uint8_t> payload;
    unsigned int count;
    std::chrono::nanoseconds every;
    bool isBegun = false; // what is left of a repeated emission
};

using PanelOrder = std::variant<PlugOrder, UnplugOrder, FaultOrder, BootFaultOrder, ClearFaultsOrder, EmitOrder>;

// Without a command: `error` names the word that is wrong and what is allowed in its place.
struct ParsedOrder {
    std::optional<PanelOrder> command;
    std::string error;
};

struct ParsedTime {
    std::optional<std::chrono::nanoseconds> time;
    std::string error;
};

// Pure; throw nothing but what exhausted memory throws.
ParsedOrder parsePanelOrder(std::string_view line);

// 250ms, 2s, 1.5s, or a plain number of the unit. Up to nine places, at most 1,000,000 s.
enum class PlainTime { Seconds, Milliseconds };
ParsedTime parseTime(std::string_view text, PlainTime plain = PlainTime::Seconds);

} // namespace Vantor
