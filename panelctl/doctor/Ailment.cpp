#include "panelctl/doctor/Ailment.h"

#include "panelctl/terminal/Failure.h"

#include <algorithm>
#include <cstdio>

namespace Vantor {

const std::vector<AilmentRow>& listAilments()
{
    constexpr int noPanel = static_cast<int>(ExitCode::NoPanel);
    static const std::vector<AilmentRow> rows{
        {Ailment::NoLibusb, "no-libusb", 24, "libusb does not start"},
        {Ailment::NoHotplug, "no-hotplug", 10, "this libusb can't tell of panels at all"},
        {Ailment::NoPanel, "no-panel", noPanel, "no panel on the bus"},
        {Ailment::OtherId, "other-id", 11, "a panel with an id that this build does not know"},
        {Ailment::NoUdevd, "no-udevd", 12, "no udevd runs: nobody sees panels come, or applies rules"},
        {Ailment::NoRule, "no-rule", 13, "no udev rule gives access to panels"},
        {Ailment::OldRule, "old-rule", 14, "the udev rule is not the one of this build"},
        {Ailment::NotInGroup, "not-in-group", 15, "this user is not in the group that the rule names"},
        {Ailment::NodeDenied, "node-denied", 16, "this user may not open the panel's node, for another reason"},
        {Ailment::KernelDriver, "kernel-driver", 17, "a driver of the kernel holds the panel"},
        {Ailment::Claimed, "claimed", 18, "another program drives the panel"},
        {Ailment::Unusable, "unusable", 19, "the panel could not be opened or kept, for another reason"},
        {Ailment::Silent, "silent", 20, "the panel does not say what it is"},
        {Ailment::PacketLimit, "packet-limit", 21, "the panel's packets are too small for firmware"},
        {Ailment::Autosuspend, "autosuspend", 22, "the kernel may suspend the panel"},
        {Ailment::NoScatterGather, "no-scatter-gather", 23, "its host controller has no scatter-gather"},
    };
    return rows;
}

const AilmentRow& rowOf(Ailment ailment)
{
    const auto& rows = listAilments();
    return *std::find_if(rows.begin(), rows.end(), [ailment](const AilmentRow& row) { return row.ailment == ailment; });
}

std::string explainAilments()
{
    std::string text;
    for (const AilmentRow& row : listAilments()) {
        char line[160];
        std::snprintf(line, sizeof line, "  %-3d  %-17s  %s\n", row.exitCode, row.name, row.meaning);
        text += line;
    }
    return text;
}

} // namespace Vantor
