#pragma once

#include "simulator/panel/BootFault.h"
#include "simulator/panel/PanelFault.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <ostream>
#include <vector>

namespace Vantor::Test {

// What goes wrong with one packet that carries a firmware record, or with the answer to it.
struct FirmwareFault {
    enum class Kind {
        // The record.
        SendLost,
        SendCorrupt, // byte `value` of the packet is changed
        SendCut,     // only `value` bytes are taken
        SendStalled,
        SendRefused, // an error that does not end the device
        SendHeld,    // `delay`
        SendTimedOut,
        // The reply.
        ReplyLost,
        ReplyCorrupt, // byte `value` of the record is inverted
        ReplyCode,    // nothing is done, and the code is `value`
        ReplyTwice,
        ReplyLate, // `delay`; the boot loader does nothing else meanwhile
        // The read that is pending.
        ReadStalled,
        ReadFailed,
        ReadCut, // to `value` bytes
        ReadHeld,
        ReadTimedOut,
    };

    unsigned int packet; // the how-manieth with a firmware record, from 0
    Kind kind;
    unsigned int value = 0;
    std::chrono::nanoseconds delay{0};

    // Who is to be told of it, if anybody.
    std::optional<BootFault> bootFault() const;
    std::optional<PanelFault> panelFault() const;
};

using FirmwareFaults = std::vector<FirmwareFault>;

// As it is written in a test.
std::ostream& operator<<(std::ostream& out, const FirmwareFault& fault);

} // namespace Vantor::Test
