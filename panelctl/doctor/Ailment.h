#pragma once

#include <string>
#include <vector>

namespace Vantor {

// What can keep panels from being used, or make them work badly. In the order in which it
// is looked for: what comes earlier is often the reason for what comes later.
enum class Ailment {
    NoLibusb,
    NoHotplug,
    NoPanel,
    OtherId,
    NoUdevd,
    NoRule,
    OldRule,
    NotInGroup,
    NodeDenied,
    KernelDriver,
    Claimed,
    Unusable,
    Silent,
    PacketLimit,
    Autosuspend,
    NoScatterGather,
};

struct AilmentRow {
    Ailment ailment;
    const char* name; // for programs
    int exitCode;     // of `panelctl doctor` when it is the worst; no other command's but NoPanel's
    const char* meaning;
};

// All of them, in order: the one place that knows their names and exit codes.
const std::vector<AilmentRow>& listAilments();

const AilmentRow& rowOf(Ailment ailment);

// A line for each, as the help shows exit codes.
std::string explainAilments();

} // namespace Vantor
