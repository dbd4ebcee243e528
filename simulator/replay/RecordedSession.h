#pragma once

#include "protocol/PacketType.h"
#include "simulator/panel/PanelScript.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Vantor {

// What a capture tells of the link between a host and its panels. Times are since the
// host's first transfer to a panel or from one; what came before that has times below 0.
// Frames are counted from 1, as Wireshark does.
struct RecordedSession {
    // A record of the host, whole, in a transfer that the panel took.
    struct HostRecord {
        PacketType type;
        std::vector<std::uint8_t> payload;
        std::chrono::nanoseconds time; // when the panel had it
        // In which Wireshark shows it: the last with bytes of its packet. Its time is as
        // there, too, since the capture's first frame.
        std::size_t frame;
        std::chrono::nanoseconds frameTime;
    };

    // What the panel did: an answer to a read, a fault of a transfer to it, its departure.
    struct Step {
        PanelScript::Deed deed;
        bool meetsRead; // there was a read, which it answered or ended
        std::chrono::nanoseconds time;
        std::size_t frame;
        std::size_t records; // of the host, in this life, that had come by then
    };

    // A panel from plug to unplug, as far as the capture goes.
    struct Life {
        std::chrono::nanoseconds begin{0};
        std::chrono::nanoseconds firstTransfer{0}; // if there is one
        // As PanelModel::Options has them; none unless the capture has them whole.
        std::vector<std::uint8_t> descriptors;
        std::map<std::uint8_t, std::vector<std::uint8_t>> strings;
        std::vector<HostRecord> records;
        std::vector<Step> steps;
        bool isLeft = false; // its last step is that it leaves
    };

    struct Panel {
        std::vector<Life> lives; // at least one
        // The capture ends while the host still uses the panel.
        bool isOpen = false;
    };

    std::vector<Panel> panels;                   // by number, in the order in which they appear
    std::optional<std::uint16_t> announcedLimit; // the largest that a panel announces
    bool isSplit = false;                        // a packet is in several transfers, as of hosts without scatter-gather
    std::vector<std::string> notes;              // what a user should know of it, a line each
    // Where bytes are missing that the capture should have of panels: the first such frame
    // and what it lacks. Empty: nowhere.
    std::string missingFromPanels;
    std::string missingFromHost;
};

} // namespace Vantor
