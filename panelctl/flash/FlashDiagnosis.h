#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace Vantor {

struct FirmwareImages;
class FlashReplies;
class Panel;

// How far an upgrade has come.
struct FlashState {
    const FirmwareImages& images;
    const FlashReplies& replies;
    std::uint32_t written;       // bytes confirmed, by the library's count
    std::uint32_t lateSentBytes; // since the last progress

    // All of it, by the library's count and by the panel's replies.
    bool isAllConfirmed() const;
};

// What `panelctl flash` says when it can't begin or does not succeed; in the form of
// Diagnosis.h.

// A panel whose packets are too small for a chunk.
std::string explainTooSmallPackets(const Panel& panel);

// At the first Ctrl-C, or another signal. `panel` is its name, here and below.
std::string warnOfInterrupt(const std::string& panel, bool isAllConfirmed, int signal);

// At the second one, with the upgrade under way.
std::string explainInterrupted(const std::string& panel, const FlashState& state);

// With all written: at the second one, or at any while the panel is asked whether it answers.
std::string explainUnasked(const std::string& panel);

// Nothing confirmed for `patience`.
std::string explainStuck(const std::string& panel, const FlashState& state, std::chrono::nanoseconds patience);

// It left before the end, of what explainEnd says.
std::string explainPulled(const std::string& panel, const std::string& end, const FlashState& state);

// The library is done, but a chunk was never confirmed.
std::string explainUnconfirmed(const std::string& panel, const FlashState& state);

// All is written, and the panel has not described itself within `patience`.
std::string explainNoAnswer(const std::string& panel, bool hasLeft, std::chrono::nanoseconds patience);

// All is well but for standard output; `trouble` is why.
std::string explainUnreadOutput(const std::string& panel, const std::string& trouble);

} // namespace Vantor
