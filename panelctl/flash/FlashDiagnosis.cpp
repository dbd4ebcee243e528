#include "panelctl/flash/FlashDiagnosis.h"

#include "panelctl/Diagnosis.h"
#include "panelctl/Wording.h"
#include "panelctl/flash/FlashRun.h"
#include "protocol/PacketHeader.h"
#include "protocol/PanelLink.h"

#include <cstdio>

namespace Vantor {

namespace {

constexpr const char* recovery = "The panel is left half written, and may not work until that is mended: run the same "
                                 "command again, which writes everything from the start. If the panel does not "
                                 "answer then, re-plug it and try once more.";

std::string hex(unsigned int value)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%02x", value);
    return text;
}

// "0x2000 of 0x2ee0 bytes of the main image (8192 of 12000 bytes in all)"
std::string howFar(const FlashRun& run, const FirmwareImages& images)
{
    std::string text = images.describePosition(run.getWritten());
    if (images.main && images.servo)
        text += " (" + std::to_string(run.getWritten()) + " of " + std::to_string(images.getTotal()) + " bytes in all)";
    return text;
}

std::string describeSilence(const FlashRun& run)
{
    const std::string out = "endpoint " + hex(PanelLink::outEndpoint);
    const std::string in = "endpoint " + hex(PanelLink::inEndpoint);
    if (run.getLateReplies() != 0)
        return "Since then it has replied " + formatNumber(run.getLateReplies(), "time") + ", last with '" +
               describeReply(run.getReplies().getLast()->command) + "'.";
    if (run.getLateSentBytes() == 0)
        return "It takes nothing any more (" + out + "): its firmware hangs, or has stalled the endpoint.";
    return "It takes what is sent (" + out + ", " + std::to_string(run.getLateSentBytes()) +
           " bytes since) but does not reply (" + in + ").";
}

} // namespace

std::string explainTooSmallPackets(const Panel& panel)
{
    constexpr unsigned int needed = sizeof(PacketHeader) + sizeof(RecordHeader) + sizeof(FirmwareData);
    return panel.getName() + " can't be flashed: its packet limit is " + std::to_string(panel.getPacketLimit()) +
           " bytes, and a packet with a chunk of firmware has " + std::to_string(needed) +
           ".\nThe first chunk would never leave and would hold back everything behind it, so nothing was sent. "
           "The limit is the panel's own: `panelctl info` shows it.";
}

std::string warnOfInterrupt(const std::string& panel)
{
    return "interrupted, but " + panel +
           " would be left half written: the upgrade goes on.\nPress Ctrl-C once more to leave all the same.";
}

std::string explainInterrupted(const std::string& panel, const FlashRun& run, const FirmwareImages& images)
{
    if (run.getWritten() >= images.getTotal())
        return explainUnasked(panel);
    return "interrupted, when " + panel + " had confirmed " + howFar(run, images) + ".\n" + recovery;
}

std::string explainUnasked(const std::string& panel)
{
    return "interrupted, when " + panel +
           " had confirmed all of the firmware, but before it was seen to answer again.\n"
           "`panelctl info` shows whether it does.";
}

std::string explainStuck(const std::string& panel, const FlashRun& run, const FirmwareImages& images,
                         std::chrono::nanoseconds patience)
{
    return panel + " has made no progress for " + formatSeconds(patience) + ": it had confirmed " +
           howFar(run, images) + ".\n" + describeSilence(run) + "\n" + recovery;
}

std::string explainPulled(const std::string& panel, const FlashRun& run, const FirmwareImages& images)
{
    return panel +
           " went away while it was written: it was unplugged, or given up after a USB error. It had confirmed " +
           howFar(run, images) + ".\nPlug it in again. " + recovery;
}

std::string explainUnconfirmed(const std::string& panel, const FlashRun& run, const FirmwareImages& images)
{
    const FirmwareImages::Position chunk = *run.getReplies().findUnconfirmed(images);
    return "the upgrade of " + panel + " came to its end, but the chunk at offset 0x" + hex(chunk.offset).substr(2) +
           " of the " + nameOf(chunk.board) +
           " image was never confirmed: most likely a reply that came twice or late had it skipped.\n" + recovery;
}

std::string explainNoAnswer(const std::string& panel, std::chrono::nanoseconds patience)
{
    return "the firmware is written, every chunk of it confirmed, but " + panel +
           " has not sent its device information since, for " + formatSeconds(patience) +
           ".\nRe-plug it, then see with `panelctl info` whether it answers. If it does not, is this the right "
           "firmware "
           "for it?";
}

std::string explainUnreadOutput(const std::string& panel, const std::string& trouble)
{
    return "all is written, and " + panel + " answers; only standard output could not be written: " + trouble + ".";
}

} // namespace Vantor
