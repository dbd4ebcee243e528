#pragma once

#include <chrono>

namespace Vantor {

// A misbehaviour that a test or a command asks of a PanelModel, on one of its
// two bulk endpoints.
struct PanelFault {
    enum class Direction {
        Out, // records to the panel
        In,  // packets from the panel
    };
    enum class Kind {
        Stall,    // the endpoint halts: -EPIPE
        Short,    // only the first `bytes` bytes are taken or given, the rest is lost
        NoAnswer, // the transfer stays pending until it is cancelled
        Status,   // the transfer fails with `status`
        Delay,    // the transfer is answered `delay` later
    };

    Direction direction = Direction::Out;
    Kind kind = Kind::Stall;
    // Once: the next transfer only. Sticky: every transfer until PanelModel::clearFaults;
    // a sticky stall also ends with clear-halt on the endpoint itself.
    bool sticky = false;
    unsigned int bytes = 0;
    int status = 0; // negative errno
    std::chrono::nanoseconds delay{0};
};

} // namespace Vantor
