#pragma once

#include "protocol/PacketType.h"
#include "simulator/panel/PanelFault.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <variant>
#include <vector>

namespace Vantor {

// What a panel does in place of what its model would do of itself: with a script, the
// model answers no request and takes no firmware, but still judges and draws what comes.
// The model asks whenever something has happened to it, and at the time that it is told.
//
// Threads: those of the model, one at a time.
class PanelScript {
public:
    // Of the oldest read that waits: exactly this. Bytes that it has no room for go on in
    // the next reads.
    struct Answer {
        int status = 0; // or a negative errno
        std::vector<std::uint8_t> data;
    };
    struct Leave {}; // as PanelModel::unplug

    // A fault is one for the next transfer.
    using Deed = std::variant<Answer, PanelFault, Leave>;

    PanelScript() = default;
    virtual ~PanelScript() = default;
    PanelScript(const PanelScript&) = delete;
    PanelScript& operator=(const PanelScript&) = delete;

    // The host has submitted a transfer, which is served next.
    virtual void onTransfer(std::chrono::nanoseconds now) = 0;

    // A record of the host has come in whole.
    virtual void onRecord(PacketType type, std::chrono::nanoseconds now) = 0;

    // What is to be done now, each thing once. No Answer unless the panel is being read.
    virtual std::optional<Deed> takeDue(std::chrono::nanoseconds now, bool isBeingRead) = 0;

    // When time alone will next bring something to be done.
    virtual std::optional<std::chrono::nanoseconds> getNextTime(bool isBeingRead) const = 0;
};

} // namespace Vantor
