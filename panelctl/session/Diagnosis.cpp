#include "panelctl/session/Diagnosis.h"

#include "libMorvaneHostUsb/Log.h"
#include "panelctl/session/UsbIds.h"
#include "panelctl/session/UsbNode.h"
#include "panelctl/terminal/Wording.h"
#include "protocol/PacketHeader.h"
#include "protocol/ReqDeviceInfo.h"
#include "wire/PanelLink.h"
#include "wire/RecordHeader.h"

#include <libusb-1.0/libusb.h>

namespace Vantor {

namespace {

using Operation = DeviceFailure::Operation;

std::string whereTheReasonIs()
{
    return logLevel >= LogLevel::Error ? "The library's own reason is in its log, above."
                                       : "The library's own reason is in its log, with --log-level 2 or higher.";
}

// True when `bytes` can be those of nothing but requests, each packet with one or more of them.
bool areWholeRequests(std::uint32_t bytes)
{
    constexpr std::uint32_t recordBytes = sizeof(RecordHeader) + sizeof(ReqDeviceInfo);
    constexpr std::uint32_t packetBytes = sizeof(PacketHeader) + recordBytes;
    for (std::uint32_t rest = bytes; rest >= packetBytes; rest -= packetBytes)
        if ((rest - packetBytes) % recordBytes == 0)
            return true;
    return false;
}

// Transfers that the parser has not delivered whole.
std::uint64_t countMalformed(const Panel& panel)
{
    const ReceiveStatistics received = panel.getDevice().getStatistics().received;
    return received.malformedPackets + received.refusedRecords + received.unparsedBuffers;
}

} // namespace

std::string nameEndpoint(unsigned int address)
{
    return "endpoint 0x" + formatHex(address, 2);
}

std::string explainNoPanel()
{
    const std::vector<std::string> ids = UsbIds::list();
    return "no panel found: no USB device with the id " + UsbIds::join(ids, " or ") +
           " is attached.\nIs the panel powered and plugged in? `lsusb -d " + UsbIds::selectAll(ids) +
           "` shows what the system sees.";
}

std::string explainNoLibusb(int code)
{
    return std::string("libusb does not start (") + libusb_error_name(code) +
           ").\nIt needs about ten open files (`ulimit -n`), a /dev/bus/usb or /sys/bus/usb that can be read, and "
           "a netlink\nsocket for what udev or the kernel tells: too few of the first, or a container or sandbox "
           "that has not the others.";
}

std::string explainUnusable(const Panel& panel)
{
    const std::string attached = panel.getName() + " is attached but can't be used: ";
    const std::string node = UsbNode::locate(panel.getPlace());
    const std::string where = node.empty() ? "" : " on " + node;
    const DeviceFailure failure = panel.getDevice().getFailure();
    if (failure.operation == Operation::Open && failure.code == LIBUSB_ERROR_ACCESS)
        return attached + "this user may not open " + (node.empty() ? "it" : node) +
               " (Permission denied).\nThe udev rule 70-morvane-panel.rules gives the members of plugdev access: "
               "install it and re-plug the panel,\nor run panelctl as root.";
    if (failure.operation == Operation::Claim && failure.code == LIBUSB_ERROR_BUSY)
        return attached + "another program or a kernel driver has claimed interface " +
               std::to_string(PanelLink::interfaceNumber) + where +
               ".\nMost likely a program is driving the panel: end it (`panelctl doctor` names it).";
    return attached + "it could not be opened and claimed" + where + " (" + failure.toString() + ").\nRe-plug it.";
}

// Nobody else's fault: found again, it is even refused until the library has closed its own old handle.
std::string explainGivenUp(const Panel& panel)
{
    return panel.getName() +
           " could be used at first, but was given up after a USB error.\nThe library tries again within five seconds "
           "while panelctl runs, and every new run does at its start. Re-plug the panel if that does not help.\n" +
           whereTheReasonIs();
}

std::string explainEnd(const Panel& panel)
{
    const DeviceFailure failure = panel.getDevice().getFailure();
    if (failure.operation == Operation::Leave || failure.code == LIBUSB_ERROR_NO_DEVICE)
        return "it was unplugged";
    // What is unplugged under load may show as an error first.
    return "it was unplugged, or given up after a USB error (" + failure.toString() + ")";
}

std::string explainLeft(const Panel& panel)
{
    return panel.getName() + " went away: " + explainEnd(panel) + ".";
}

std::string explainNoInformation(const Panel& panel, std::chrono::nanoseconds limit)
{
    std::string text = panel.getName() + " has not sent its device information within " + formatSeconds(limit) + ".\n";
    if (panel.getSentBytes() == 0)
        text += "It has not taken the request for it either (0 bytes on " + nameEndpoint(PanelLink::outEndpoint) +
                "): its firmware is not running, hangs, or has stalled the endpoint. Re-plug it.";
    else if (!areWholeRequests(panel.getSentBytes()))
        text += "It has taken the request for it only in part (" + std::to_string(panel.getSentBytes()) + " bytes on " +
                nameEndpoint(PanelLink::outEndpoint) + "), and the rest is not sent again. Check the panel's firmware.";
    else if (panel.getReceivedBytes() == 0)
        text += "It took the request (" + nameEndpoint(PanelLink::outEndpoint) + ") but has sent nothing at all (" +
                nameEndpoint(PanelLink::inEndpoint) + "). Re-plug it, or wait longer with --timeout.";
    else if (const std::uint64_t malformed = countMalformed(panel); malformed != 0)
        text += "It took the request (" + nameEndpoint(PanelLink::outEndpoint) + ") and does send packets (" +
                std::to_string(panel.getReceivedBytes()) + " bytes), but " + std::to_string(malformed) +
                " of its transfers came malformed and did not get through whole. `panelctl watch` shows them. Check "
                "the panel's firmware.";
    else
        text += "It took the request (" + nameEndpoint(PanelLink::outEndpoint) + ") and does send packets (" +
                std::to_string(panel.getReceivedBytes()) + " bytes), but not this one. `panelctl watch` shows them.";
    return text;
}

std::string explainNotTaken(const Panel& panel, const std::string& thing, std::uint64_t taken, std::uint64_t bytes,
                            std::chrono::nanoseconds limit)
{
    return panel.getName() + " has not taken the " + thing + " within " + formatSeconds(limit) + ": " +
           std::to_string(taken) + " of " + std::to_string(bytes) + " bytes on " +
           nameEndpoint(PanelLink::outEndpoint) +
           ".\nThe panel does not read the endpoint (firmware busy or hung), or the endpoint is stalled. "
           "Re-plug it, or wait longer with --timeout.\nThe " +
           (taken == 0 ? thing : "rest of the " + thing) +
           " was still queued and goes no further, though the panel may have got it in a last attempt.";
}

std::string explainRecordCutShort(const Panel& panel, std::uint64_t taken, std::uint64_t bytes)
{
    return panel.getName() + " has taken only a part of the record's packet: " + std::to_string(taken) + " of " +
           std::to_string(bytes) + " bytes on " + nameEndpoint(PanelLink::outEndpoint) +
           ".\nThe rest is lost, as a packet taken in part is not sent again. Check the panel's firmware.";
}

std::string explainPictureCutShort(const Panel& panel, std::uint64_t /*taken*/, std::uint64_t /*bytes*/)
{
    return panel.getName() + " has taken a packet of the picture in part only, so that rows of it are missing.\n"
                             "A packet taken in part is not sent again, and nothing more of the picture is waited "
                             "for. Check the panel's firmware.";
}

} // namespace Vantor
