#pragma once

#include <chrono>
#include <cstdint>

namespace Vantor {

// A misbehaviour that a test or a command asks of a BootLoader, met by one firmware
// record (a request or a chunk) or, when sticky, by all of them.
struct BootFault {
    enum class Kind {
        Reply,     // nothing is done, the answer is `code`
        Lose,      // done, but not answered
        Ignore,    // as if the record had never come
        Delay,     // takes `delay` longer, and so does what waits behind it
        Duplicate, // answered twice
        Corrupt,   // byte `offset` of the answer is inverted
        Unplug,    // the record is lost, and the link with it
    };

    Kind kind = Kind::Ignore;
    // Once: one record only. Sticky: every record until the faults are cleared.
    bool sticky = false;
    unsigned int skip = 0;   // so many records pass before the first one is met
    std::uint8_t code = 0;   // FirmwareUpgradeCommand::Command, or a value that it doesn't know
    unsigned int offset = 0; // below the size of a FirmwareUpgradeCommand
    std::chrono::nanoseconds delay{0};
};

} // namespace Vantor
