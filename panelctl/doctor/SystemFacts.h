#pragma once

#include "panelctl/doctor/DoctorFacts.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

namespace Vantor {

// Where the system is looked at; the folders stand for the system's.
struct SystemPlaces {
    std::string sysfs = "/sys/bus/usb/devices";
    std::string dev = "/dev";
    std::string proc = "/proc";
    std::string root; // what is behind it: /etc, /lib, /run, /usr
};

// Reads from the system what does not take the library. What can't be read is left out: to
// say so is the judge's.
class SystemFacts {
public:
    explicit SystemFacts(SystemPlaces places) : m_places(std::move(places)) {}

    // udev, its rule, the user and the groups, into `facts`.
    void addSystem(DoctorFacts& facts) const;

    // The panels, no more than named and with the paths of their nodes.
    std::vector<PanelFacts> listPanels(const std::vector<std::string>& knownIds) const;

    // Leaves in facts.panels those that were there at the start, and are so still; the rest
    // becomes facts.departed and facts.newcomers.
    void sortOut(DoctorFacts& facts, const std::vector<PanelFacts>& atStart) const;

    // The USB devices that are panels or look like ones, by facts.knownIds; with their nodes,
    // drivers, power and buses. Opens the nodes for a moment.
    void addDevices(DoctorFacts& facts) const;

    // Who else has these panels' nodes open. By root, or of processes of this user.
    void addHolders(DoctorFacts& facts) const;

private:
    bool isUdevdThere() const;
    bool isAncestor(const std::string& process) const;
    std::string readId(const std::string& place) const;
    std::optional<RuleFile> findRule() const;
    std::vector<GroupFacts> readGroups() const;
    std::string nameUser(uid_t user) const;
    std::string nameGroup(gid_t group) const;
    NodeFacts examineNode(const std::string& place) const;
    PanelFacts examine(const std::string& place, const std::string& id) const;
    bool isDeviceFile(const std::string& link) const;
    NodeHolder describeProcess(const std::string& process) const;
    std::string readAttribute(const std::string& place, const std::string& attribute) const;

    const SystemPlaces m_places;
};

} // namespace Vantor
