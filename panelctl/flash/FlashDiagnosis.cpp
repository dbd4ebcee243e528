#include "panelctl/flash/FlashDiagnosis.h"

#include "panelctl/flash/FlashReplies.h"
#include "panelctl/session/Diagnosis.h"
#include "panelctl/terminal/Wording.h"
#include "wire/PanelLink.h"

#include <algorithm>
#include <csignal>

namespace Vantor {

namespace {

constexpr const char* recovery = "The panel is left half written, and may not work until that is mended: run the same "
                                 "command again, which writes everything from the start. If the panel does not "
                                 "answer then, re-plug it and try once more.";

constexpr const char* unwritable =
    "The panel is left half written, and may not work. Its flash fails at this place each time, which running the same "
    "command again may not mend: is the image too large for it, or meant for another panel?";

constexpr const char* nothingConfirmed =
    "The panel has confirmed nothing: it may still hold its old firmware, or have erased it. ";
constexpr const char* doubt = "Is the image too large for it, or meant for another panel? If neither, re-plug it and "
                              "try once more.";
constexpr const char* repetition = "Run the same command again.";

// "96 of 4000 bytes of the servo image (12096 of 16000 bytes in all)"
std::string howFar(const FlashState& state)
{
    std::string text = state.images.describePosition(state.written);
    if (state.images.main && state.images.servo)
        text +=
            " (" + std::to_string(state.written) + " of " + std::to_string(state.images.getTotal()) + " bytes in all)";
    return text;
}

std::string describeSilence(const FlashState& state)
{
    const std::string out = nameEndpoint(PanelLink::outEndpoint);
    std::size_t replies = 0;
    for (const auto& [command, number] : state.replies.getLate())
        replies += number;
    if (replies != 0)
        return "Since then it has replied " + formatNumber(replies, "time") + " (" +
               describeCounts(state.replies.getLate()) + ").";
    if (state.lateSentBytes == 0)
        return "It takes nothing any more (" + out + "): its firmware hangs, or has stalled the endpoint.";
    return "It takes what is sent (" + out + ", " + std::to_string(state.lateSentBytes) +
           " bytes since) but does not reply (" + nameEndpoint(PanelLink::inEndpoint) + ").";
}

// A line, or nothing.
std::string describeTroubles(const FlashState& state)
{
    const std::string troubles = state.replies.describeTroubles();
    return troubles.empty() ? "" : "Replies: " + troubles + ".\n";
}

// Whether its flash has failed at every attempt since the last progress.
bool isUnwritable(const FlashState& state)
{
    const FlashReplies::Counts& late = state.replies.getLate();
    return !late.empty() && std::all_of(late.begin(), late.end(), [](const auto& reply) {
        return reply.first == FirmwareUpgradeCommand::WriteFailed || reply.first == FirmwareUpgradeCommand::EraseFailed;
    });
}

std::string advise(const FlashState& state, bool isStuck)
{
    const bool isRefused = isStuck || !state.replies.describeTroubles().empty();
    if (state.written != 0 || state.replies.hasConfirmed())
        return isUnwritable(state) ? unwritable : recovery;
    return std::string(nothingConfirmed) + (isRefused ? doubt : repetition);
}

// "the chunk at offset 4096 of the main image was never confirmed: ..."
std::string describeUnconfirmed(const FlashState& state)
{
    const FirmwareImages::Position chunk = *state.replies.findUnconfirmed(state.images);
    return "the chunk at offset " + std::to_string(chunk.offset) + " of the " + nameOf(chunk.board) +
           " image was never confirmed: most likely a reply that came twice or late had it skipped.\n" +
           describeTroubles(state) + recovery;
}

} // namespace

bool FlashState::isAllConfirmed() const
{
    return written >= images.getTotal() && !replies.findUnconfirmed(images);
}

std::string explainTooSmallPackets(const Panel& panel)
{
    return panel.getName() + " can't be flashed: its packet limit is " + std::to_string(panel.getPacketLimit()) +
           " bytes, and a packet with a chunk of firmware has " + std::to_string(Panel::firmwarePacketSize) +
           ".\nThe first chunk would never leave and would hold back everything behind it, so nothing was sent. "
           "The limit is the panel's own: `panelctl info` shows it.";
}

std::string warnOfInterrupt(const std::string& panel, bool isAllConfirmed, int signal)
{
    const std::string more =
        std::string(signal == SIGINT ? "Press Ctrl-C" : "Interrupt it") + " once more to leave all the same.";
    if (isAllConfirmed)
        return "interrupted, when " + panel +
               " had confirmed all of the firmware: the upgrade ends within a second.\n" + more;
    return "interrupted, but " + panel + " would be left half written: the upgrade goes on.\n" + more;
}

std::string explainInterrupted(const std::string& panel, const FlashState& state)
{
    if (state.isAllConfirmed())
        return explainUnasked(panel);
    if (state.written >= state.images.getTotal())
        return "interrupted, when " + panel + " was almost done; " + describeUnconfirmed(state);
    return "interrupted, when " + panel + " had confirmed " + howFar(state) + ".\n" + describeTroubles(state) +
           advise(state, false);
}

std::string explainUnasked(const std::string& panel)
{
    return "interrupted, when " + panel +
           " had confirmed all of the firmware, but before it was seen to answer again.\n"
           "`panelctl info` shows whether it does.";
}

std::string explainStuck(const std::string& panel, const FlashState& state, std::chrono::nanoseconds patience)
{
    return panel + " has made no progress for " + formatSeconds(patience) + ": it had confirmed " + howFar(state) +
           ".\n" + describeSilence(state) + "\n" + advise(state, true);
}

std::string explainPulled(const std::string& panel, const std::string& end, const FlashState& state)
{
    return panel + " went away while it was written: " + end + ". It had confirmed " + howFar(state) + ".\n" +
           describeTroubles(state) + "Plug it in again. " + advise(state, false);
}

std::string explainUnconfirmed(const std::string& panel, const FlashState& state)
{
    return "the upgrade of " + panel + " came to its end, but " + describeUnconfirmed(state);
}

std::string explainNoAnswer(const std::string& panel, bool hasLeft, std::chrono::nanoseconds patience)
{
    const std::string what =
        hasLeft ? " left the bus and has not come back within " : " has not sent its device information since, for ";
    return "the firmware is written, every chunk of it confirmed, but " + panel + what + formatSeconds(patience) +
           ".\nRe-plug it, then see with `panelctl info` whether it answers. If it does not, is this the right "
           "firmware for it?";
}

std::string explainUnreadOutput(const std::string& panel, const std::string& trouble)
{
    return "all is written, and " + panel + " answers; only standard output could not be written: " + trouble + ".";
}

} // namespace Vantor
