#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace Vantor {

// A process that has a panel's node open.
struct NodeHolder {
    pid_t process;
    std::string name;
    std::string user;
    bool isSimulator = false; // that this process runs in
};

// The device file of a panel.
struct NodeFacts {
    std::string path;   // empty: sysfs does not say
    int error = 0;      // errno with which this user may not open it; 0: he may
    std::string access; // "crw-rw---- root plugdev"; empty when it can't be told
};

// A USB device that is a panel or looks like one.
struct PanelFacts {
    // How far the library came with it.
    enum class State {
        NotListed, // the library does not know of it
        NeverOpened,
        GivenUp, // was open, ended by an error
        Silent,  // open, but no device information
        Described,
    };

    std::string place; // "1-4.2"
    std::string id;    // "dead:beef"
    NodeFacts node;
    std::string interface;                     // "1-4.2:1.0"
    std::string driver;                        // the kernel's, bound to that interface; "usbfs" is a program's claim
    std::vector<NodeHolder> holders;           // but for this process
    std::string powerControl;                  // "on" or "auto"; empty: sysfs does not say
    std::optional<std::uint32_t> capabilities; // of its bus, USBDEVFS_CAP_*; none: can't be asked
    State state = State::NotListed;
    std::string failure;             // of NeverOpened and GivenUp, as the library has it: "claim: LIBUSB_ERROR_BUSY"
    bool isBusy = false;             // that one
    std::string silence;             // of Silent: how far it got
    std::string description;         // of Described
    unsigned int packetLimit = 0;    // of Described: as the library takes it
    unsigned int announcedLimit = 0; // as the panel says
};

struct RuleFile {
    std::string path;
    std::string text;
    bool isMasked = false; // empty or /dev/null: hides those in later folders, and says nothing
    int error = 0;         // errno with which it can't be read
};

struct GroupFacts {
    std::string name;
    gid_t number;
    std::vector<std::string> members;
};

// All that is known of the machine, of this user, and of the panels.
struct DoctorFacts {
    std::string root;               // the system that udev, users and groups are of; empty: this one
    std::optional<int> libusbError; // with which it does not start
    bool hasHotplug = true;
    bool hasUdevd = true;
    std::vector<std::string> knownIds; // "dead:beef"
    std::string ownRule;               // what this build installs
    std::optional<RuleFile> rule;      // what udev goes by
    std::string ruleFolder;            // where a rule of the administrator's belongs
    bool isRoot = false;
    std::string user;
    std::vector<gid_t> groups; // of this process
    std::vector<GroupFacts> allGroups;
    bool hasHiddenProcesses = false;   // whose files this user may not see
    std::vector<PanelFacts> panels;    // with a known id, there all the time
    std::vector<PanelFacts> departed;  // that left meanwhile: no more than named
    std::vector<PanelFacts> newcomers; // that came meanwhile: no more than named
    std::vector<PanelFacts> strangers; // with an id akin to it
    unsigned int otherDevices = 0;     // neither of these nor a hub
};

} // namespace Vantor
