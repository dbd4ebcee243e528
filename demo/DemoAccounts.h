#pragma once

#include "panelctl/session/Session.h"

#include <cstdint>
#include <map>
#include <string>

namespace Vantor {

// What became of the demo's records for one panel, and what came from it, over all
// its stays on the bus.
struct DemoAccount {
    std::uint64_t given = 0;
    std::uint64_t taken = 0; // the rest waited or was on its way when the panel left
    std::map<PacketType, std::uint64_t> received;

    // Counts a packet; ignores other events.
    void count(const PanelEvent& event);

    std::uint64_t getPackets() const;

    // "1 of type 0, 9 of type 20"
    std::string describeReceived() const;
};

using DemoAccounts = std::map<std::uint16_t, DemoAccount>; // by uid

} // namespace Vantor
