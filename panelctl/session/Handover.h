#pragma once

#include "panelctl/session/Panel.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace Vantor {

class Session;

// How much a panel takes of what is given to its packer from construction on. The library
// reports no record and no layer; what it shows is whether the packer is empty and how
// many bytes have been accepted, packet headers included.
//
// Threads: one. Nothing else may be sent to the panel meanwhile.
class Handover {
public:
    // What was given, in messages.
    struct Wording {
        const char* thing; // "record"
        const char* doubt; // what is not known when the panel has left
        std::string (*explainCutShort)(const Panel& panel, std::uint64_t taken, std::uint64_t bytes);
    };

    explicit Handover(const Panel& panel) : m_panel(panel), m_counter(panel.getSentBytes()) {}

    PriorityPacker& getPacker() const { return m_panel.getDevice().getPacker(); }

    // Asked at least once in 4 GiB, as the library's counter wraps.
    std::uint64_t getTakenBytes();

    // True when nothing waits any more, and this many bytes are taken.
    bool isTaken(std::uint64_t bytes) { return !getPacker().hasMoreData() && getTakenBytes() >= bytes; }

    // Waits until packets are taken that end at these bytes. Throws Failure, with `note`
    // behind its text, when that does not come about: in time, before the panel leaves, or
    // because it took a packet in part, which is not sent again.
    void await(Session& session, const std::vector<std::uint64_t>& ends, std::chrono::nanoseconds limit,
               const Wording& wording, const std::string& note = "");

private:
    Panel m_panel;
    std::uint32_t m_counter; // as last read
    std::uint64_t m_bytes = 0;
};

} // namespace Vantor
