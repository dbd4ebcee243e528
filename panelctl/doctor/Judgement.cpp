#include "panelctl/doctor/Judgement.h"

#include "panelctl/doctor/PanelRule.h"
#include "panelctl/session/Diagnosis.h"
#include "panelctl/session/Panel.h"
#include "panelctl/session/UsbIds.h"
#include "panelctl/terminal/Wording.h"
#include "wire/PanelLink.h"

#include <algorithm>
#include <cerrno>

#include <linux/usbdevice_fs.h>

namespace Vantor {

namespace {

using Severity = Finding::Severity;
using State = PanelFacts::State;

constexpr const char* sudo = "sudo ";
constexpr const char* applyRules = "sudo udevadm trigger --action=add --subsystem-match=usb";

bool isDenied(const PanelFacts& panel)
{
    return panel.node.error == EACCES || panel.node.error == EPERM;
}

// Open and claimed, whatever it did then.
bool isOpened(const PanelFacts& panel)
{
    return panel.state == State::Silent || panel.state == State::Described;
}

// Of these checks the facts are those behind --root.
bool isOfRoot(const Finding& finding)
{
    const std::string check = finding.check;
    return check == "udevd" || check == "rule" || check == "group" || finding.ailment == Ailment::NodeDenied;
}

// One examination: the findings grow check by check.
class Examination {
public:
    explicit Examination(const DoctorFacts& facts) : m_facts(facts) {}
    std::vector<Finding> conduct();

private:
    void lookForLibusb();
    void lookForHotplug();
    void lookForPanels();
    void lookForUdevd();
    void lookAtRule();
    void lookAtGroup();
    void lookAtNode(const PanelFacts& panel);
    void lookAtClaim(const PanelFacts& panel);
    void lookAtAnswer(const PanelFacts& panel);
    void lookAtPacketLimit(const PanelFacts& panel);
    void lookAtAutosuspend(const PanelFacts& panel);
    void lookAtScatterGather(const PanelFacts& panel);

    void blameDriver(const PanelFacts& panel);
    void blameHolders(const PanelFacts& panel);
    void blameNobody(const PanelFacts& panel);
    void nameThoseThatCameAndWent();
    void blameAbsence();
    void blameMask();
    void blameRule(Ailment ailment, const std::string& text, const std::string& reason,
                   std::vector<std::string> commands = {});
    void adaptCommands(Finding& finding) const;

    bool isAnyDenied() const;
    bool isRuleNeeded() const;
    const GroupFacts* findGroup(const std::string& name) const;
    std::string sysfsOf(const PanelFacts& panel, const std::string& attribute) const;

    void pass(const char* check, const std::string& text, const std::string& place = "");
    void leaveOut(const char* check, const std::string& text, const std::string& place = "");
    void add(Severity severity, const char* check, Ailment ailment, const std::string& place, const std::string& text,
             const std::string& reason, std::vector<std::string> commands);

    const DoctorFacts& m_facts;
    std::vector<Finding> m_findings;
    bool m_isDenialExplained = false;
    std::string m_group; // to which the rule gives panels, or the one that should be there
};

std::vector<Finding> Examination::conduct()
{
    lookForLibusb();
    lookForPanels();
    lookForUdevd();
    lookAtRule();
    lookAtGroup();
    m_isDenialExplained =
        isAnyDenied() && std::any_of(m_findings.begin(), m_findings.end(), [](const Finding& finding) {
            return finding.severity == Severity::Error && finding.ailment >= Ailment::NoUdevd;
        });
    for (const PanelFacts& panel : m_facts.panels) {
        lookAtNode(panel);
        lookAtClaim(panel);
        lookAtAnswer(panel);
        lookAtPacketLimit(panel);
        lookAtAutosuspend(panel);
        lookAtScatterGather(panel);
    }
    for (Finding& finding : m_findings)
        adaptCommands(finding);
    return std::move(m_findings);
}

// Root needs no sudo; and what is amiss in another system is not to be mended in this one.
void Examination::adaptCommands(Finding& finding) const
{
    if (!m_facts.root.empty() && !finding.commands.empty() && isOfRoot(finding)) {
        finding.commands.clear();
        finding.reason += "\nWhat mends it belongs into the system in " + makePrintable(m_facts.root) +
                          ", not into this one: no commands.";
    }
    if (m_facts.isRoot)
        for (std::string& command : finding.commands)
            for (std::size_t at = 0; (at = command.find(sudo, at)) != std::string::npos;)
                command.erase(at, std::char_traits<char>::length(sudo));
}

void Examination::lookForLibusb()
{
    if (!m_facts.libusbError)
        return lookForHotplug();
    const std::string explanation = explainNoLibusb(*m_facts.libusbError);
    const std::size_t end = explanation.find('\n');
    add(Severity::Error, "hotplug", Ailment::NoLibusb, "", explanation.substr(0, end), explanation.substr(end + 1),
        {"ulimit -n", "ls -ld /dev/bus/usb /sys/bus/usb/devices"});
}

void Examination::lookForHotplug()
{
    if (m_facts.hasHotplug)
        return pass("hotplug", "libusb tells of devices that come and go");
    add(Severity::Error, "hotplug", Ailment::NoHotplug, "", "this libusb can't tell of devices that come and go.",
        "It was built without hotplug, by which alone the library finds panels. Debian's has it; of your own,\n"
        "configure it with --enable-udev, or without udev but with netlink.",
        {"sudo apt-get install --reinstall libusb-1.0-0"});
}

void Examination::lookForPanels()
{
    const std::string known = UsbIds::join(m_facts.knownIds, " or ");
    for (const PanelFacts& panel : m_facts.panels)
        pass("panel", "panel " + panel.id + " is on the bus", panel.place);
    for (const PanelFacts& stranger : m_facts.strangers) {
        const std::size_t colon = stranger.id.find(':');
        const bool isOwnProduct = stranger.id.substr(colon + 1) == formatHex(PanelLink::productId, 4);
        add(Severity::Error, "panel", Ailment::OtherId, stranger.place,
            "device " + stranger.id + " looks like a panel, but this build knows " + known + " only.",
            isOwnProduct
                ? "No program that uses this library looks at it. If it is a panel of yours, build the library\n"
                  "with its vendor id, and install that."
                : "No build of the library looks at it: a panel's product id is " + formatHex(PanelLink::productId, 4) +
                      ". Is it a panel, with the right firmware?",
            {isOwnProduct ? "cmake --preset release -DMORVANE_PRODUCTION_VENDOR_ID=0x" + stranger.id.substr(0, colon) +
                                " && cmake --build --preset release"
                          : "lsusb -v -d " + stranger.id});
    }
    nameThoseThatCameAndWent();
    if (m_facts.panels.empty() && m_facts.strangers.empty())
        blameAbsence();
}

// Neither is judged: one is not there, the other has had no time.
void Examination::nameThoseThatCameAndWent()
{
    for (const PanelFacts& panel : m_facts.departed)
        leaveOut("panel", "panel " + panel.id + " left while it was looked at", panel.place);
    for (const PanelFacts& panel : m_facts.newcomers)
        leaveOut("panel", "panel " + panel.id + " came while the others were looked at: ask again", panel.place);
}

void Examination::blameAbsence()
{
    const std::string known = UsbIds::join(m_facts.knownIds, " or ");
    if (!m_facts.departed.empty() || !m_facts.newcomers.empty())
        return add(Severity::Error, "panel", Ailment::NoPanel, "", "no panel was on the bus all the time.",
                   "One came or left meanwhile. A panel that does so again and again restarts, or has a bad cable or "
                   "too little power.",
                   {"panelctl doctor"});
    add(Severity::Error, "panel", Ailment::NoPanel, "",
        "no panel is on the bus: no USB device has the id " + known + ".",
        "Of other devices there " + std::string(m_facts.otherDevices == 1 ? "is " : "are ") +
            std::to_string(m_facts.otherDevices) +
            ", hubs not counted. Is the panel powered and plugged in? This goes on when it is:",
        {"lsusb -d " + UsbIds::selectAll(m_facts.knownIds)});
}

// Without it a panel that is there already can be used, if only its node can be opened.
void Examination::lookForUdevd()
{
    if (m_facts.hasUdevd)
        return pass("udevd", "udevd runs");
    add(isAnyDenied() ? Severity::Error : Severity::Warning, "udevd", Ailment::NoUdevd, "", "no udevd runs.",
        "libusb, unless built without udev, has it from udevd when a panel is plugged in: programs that run do not "
        "see\n"
        "one come or go. And nobody gives a panel's node to those whom the udev rule names.",
        {"sudo systemctl start systemd-udevd || sudo /lib/systemd/systemd-udevd --daemon", applyRules});
}

// Only access counts: whoever may open the panels, root or by other means, needs no rule.
void Examination::lookAtRule()
{
    const std::string& known = m_facts.knownIds.front();
    if (!m_facts.rule && !isRuleNeeded())
        return pass("rule", "no udev rule for panels, and " + m_facts.user + " needs none");
    m_group = PanelRule::findGroup(PanelRule::findStatement(m_facts.ownRule, known));
    if (m_facts.rule && m_facts.rule->error != 0)
        return leaveOut("rule", m_facts.rule->path + " can't be read (" + describeError(m_facts.rule->error) +
                                    "): whether it is this build's is not known");
    if (m_facts.rule && m_facts.rule->isMasked)
        return blameMask();
    if (!m_facts.rule)
        return blameRule(Ailment::NoRule, "no udev rule gives access to panels.",
                         "Nodes belong to root then, and to nobody else.");
    std::string missing;
    for (const std::string& id : m_facts.knownIds)
        if (PanelRule::findStatement(m_facts.rule->text, id).empty())
            missing += (missing.empty() ? "" : " and ") + id;
    if (PanelRule::strip(m_facts.rule->text) == PanelRule::strip(m_facts.ownRule))
        return pass("rule", m_facts.rule->path + " is this build's udev rule");
    if (!isRuleNeeded()) {
        m_group = PanelRule::findGroup(PanelRule::findStatement(m_facts.rule->text, known));
        return pass("rule", m_facts.rule->path + " is another udev rule than this build's, and " + m_facts.user +
                                " needs none");
    }
    blameRule(
        Ailment::OldRule,
        m_facts.rule->path + " is not the udev rule of this build" +
            (missing.empty() ? "." : ": it does not name " + missing + "."),
        "An older one, or one that was changed. Of several files of this name udev takes the first folder's alone,\n"
        "/etc before /run, /usr/local/lib, /usr/lib and /lib.");
}

// Without its end the rule could not be written: it would go where the link leads.
void Examination::blameMask()
{
    if (!isRuleNeeded())
        return pass("rule", m_facts.rule->path + " is masked, and " + m_facts.user + " needs no rule");
    blameRule(Ailment::NoRule, m_facts.rule->path + " is masked: no udev rule gives access to panels.",
              "It is empty, or a link to /dev/null, and so hides the file of this name in every later folder. Nodes "
              "belong to\nroot then, and to nobody else.",
              {"sudo rm " + m_facts.rule->path});
}

void Examination::blameRule(Ailment ailment, const std::string& text, const std::string& reason,
                            std::vector<std::string> commands)
{
    commands.insert(commands.end(), {"sudo mkdir -p " + m_facts.ruleFolder,
                                     "panelctl doctor --rule | sudo tee " + m_facts.ruleFolder + "/" +
                                         PanelRule::fileName + " > /dev/null",
                                     "sudo udevadm control --reload", applyRules});
    add(isAnyDenied() ? Severity::Error : Severity::Warning, "rule", ailment, "", text, reason, std::move(commands));
}

void Examination::lookAtGroup()
{
    if (m_group.empty())
        return;
    const GroupFacts* const group = findGroup(m_group);
    const bool isMember = group != nullptr && std::find(m_facts.groups.begin(), m_facts.groups.end(), group->number) !=
                                                  m_facts.groups.end();
    if (isMember || !isRuleNeeded())
        return pass("group", m_facts.user + (isMember ? " is in " + m_group + ", to which the rule gives panels"
                                                      : " is not in " + m_group + ", and needs not be"));
    const Severity severity = isAnyDenied() ? Severity::Error : Severity::Warning;
    const bool isListed = group != nullptr &&
                          std::find(group->members.begin(), group->members.end(), m_facts.user) != group->members.end();
    if (isListed)
        return add(severity, "group", Ailment::NotInGroup, "",
                   m_facts.user + " is in the group " + m_group + ", but this login does not know it yet.",
                   "What a user may do is settled when he logs in. Log in anew, or begin a shell that knows:",
                   {"newgrp " + m_group});
    const bool hasName = m_facts.user.find(' ') == std::string::npos; // "uid 1000": the system's own word is asked
    std::vector<std::string> commands{"sudo usermod -aG " + m_group + " " + (hasName ? m_facts.user : "\"$(id -un)\""),
                                      "newgrp " + m_group};
    if (group == nullptr)
        commands.insert(commands.begin(), {"sudo groupadd --system " + m_group});
    if (group == nullptr)
        commands.insert(commands.begin() + 2, {"sudo udevadm control --reload", applyRules});
    add(severity, "group", Ailment::NotInGroup, "",
        m_facts.user + " is not in the group " + m_group +
            (group == nullptr ? ", which this system does not have." : ", to which the udev rule gives panels."),
        "Whoever sits at the machine needs not be; others do. It counts from the next login on, or in a new shell:",
        commands);
}

void Examination::lookAtNode(const PanelFacts& panel)
{
    if (panel.node.path.empty())
        return leaveOut("node", "sysfs does not say which node it has", panel.place);
    if (panel.node.error == 0)
        return pass("node", m_facts.user + " may open " + panel.node.path, panel.place);
    const std::string denied =
        m_facts.user + " may not open " + panel.node.path + " (" + describeError(panel.node.error) + ")";
    if (isDenied(panel) && m_isDenialExplained)
        return leaveOut("node", denied + ": for the reason above", panel.place);
    if (panel.node.error == ENOENT)
        return add(Severity::Error, "node", Ailment::NodeDenied, panel.place, denied + ".",
                   "The panel is there, its node is not: is /dev that of a container, into which the host has to pass "
                   "/dev/bus/usb?\nThis shows where it is from:",
                   {"findmnt --target /dev"});
    const std::string is = panel.node.access.empty() ? "" : "It is " + panel.node.access + ". ";
    const bool isRuleKnown = !m_facts.rule || m_facts.rule->error == 0;
    add(Severity::Error, "node", Ailment::NodeDenied, panel.place, denied + ".",
        is +
            (isRuleKnown ? "The rule and the groups are right, but came after the panel."
                         : "The groups are right; of the rule nothing is known. If it is right, it came after the "
                           "panel.") +
            " Plug it in anew, or apply them now:",
        {applyRules});
}

void Examination::lookAtClaim(const PanelFacts& panel)
{
    if (panel.node.error != 0 || !m_facts.hasHotplug || m_facts.libusbError)
        return leaveOut("claim", "not tried: what is above comes first", panel.place);
    if (isOpened(panel))
        return pass("claim", "the library opens and claims it", panel.place);
    if (panel.state == State::NeverOpened && !panel.driver.empty() && panel.driver != "usbfs")
        return blameDriver(panel);
    if (panel.state == State::NeverOpened && panel.isBusy)
        return blameHolders(panel);
    blameNobody(panel);
}

void Examination::blameDriver(const PanelFacts& panel)
{
    add(Severity::Error, "claim", Ailment::KernelDriver, panel.place,
        "the kernel's driver '" + makePrintable(panel.driver) + "' holds interface " +
            std::to_string(PanelLink::interfaceNumber) + ", and does not let go of it.",
        "The library asks the kernel to unbind it, which was refused. To be rid of it for good, keep it from this id.",
        {"echo " + panel.interface + " | sudo tee /sys/bus/usb/drivers/" + makePrintable(panel.driver) + "/unbind"});
}

void Examination::blameHolders(const PanelFacts& panel)
{
    std::string reason;
    std::vector<std::string> commands;
    for (const NodeHolder& holder : panel.holders) {
        const std::string process = std::to_string(holder.process);
        if (holder.isSimulator) {
            reason += makePrintable(holder.name) + " (process " + process + ") has its node open, too: it is the " +
                      "simulator that this runs in.\n";
            continue;
        }
        reason += makePrintable(holder.name) + " (process " + process + ", user " + makePrintable(holder.user) +
                  ") has " + panel.node.path + " open.\n";
        commands.push_back((holder.user == m_facts.user ? "kill " : "sudo kill ") + process);
    }
    const bool isAnybodyThere = !commands.empty();
    if (!isAnybodyThere && m_facts.hasHiddenProcesses) {
        reason += "It is none of " + m_facts.user + "'s own processes; what others have open " + m_facts.user +
                  " may not see, but root may.\n";
        commands.emplace_back("sudo panelctl doctor");
    } else if (!isAnybodyThere) {
        reason += "No other process has its node open any more: it may have ended meanwhile.\n";
        commands.emplace_back("panelctl doctor");
    }
    add(Severity::Error, "claim", Ailment::Claimed, panel.place, "another program drives the panel.",
        reason + "Only one program at a time can.", commands);
}

void Examination::blameNobody(const PanelFacts& panel)
{
    const char* const text = panel.state == State::GivenUp     ? "the panel was opened, and given up after a USB error."
                             : panel.state == State::NotListed ? "the library does not find the panel."
                                                               : "the panel could not be opened and claimed.";
    const std::string said = panel.failure.empty() ? "" : "libusb's reason: " + panel.failure + ".\n";
    const std::string authorized = sysfsOf(panel, "authorized");
    add(Severity::Error, "claim", Ailment::Unusable, panel.place, text,
        said + "Plug the panel in anew, or have the kernel set it up again:",
        {"echo 0 | sudo tee " + authorized, "echo 1 | sudo tee " + authorized});
}

void Examination::lookAtAnswer(const PanelFacts& panel)
{
    if (!isOpened(panel))
        return leaveOut("answer", "not asked: the panel is not open", panel.place);
    if (panel.state == State::Described)
        return pass("answer", "it says that it is: " + panel.description, panel.place);
    const std::size_t end = panel.silence.find('\n');
    const std::string authorized = sysfsOf(panel, "authorized");
    add(Severity::Error, "answer", Ailment::Silent, panel.place, panel.silence.substr(0, end),
        (end == std::string::npos ? "" : panel.silence.substr(end + 1) + "\n") +
            std::string(
                "A panel whose information is not known gets no firmware, and no record of more than a kilobyte.\n"
                "In place of re-plugging it:"),
        {"echo 0 | sudo tee " + authorized, "echo 1 | sudo tee " + authorized});
}

void Examination::lookAtPacketLimit(const PanelFacts& panel)
{
    if (panel.state != State::Described)
        return leaveOut("packet-limit", "its packet limit is not known", panel.place);
    const std::string limit = std::to_string(panel.packetLimit);
    if (panel.packetLimit >= Panel::firmwarePacketSize)
        return pass("packet-limit", "packets of " + limit + " bytes take firmware", panel.place);
    const bool isKept = panel.packetLimit != panel.announcedLimit;
    add(Severity::Warning, "packet-limit", Ailment::PacketLimit, panel.place,
        "it announces packets of at most " + std::to_string(panel.announcedLimit) + " bytes" +
            (isKept ? ", for which the library takes " + limit : "") + ": too few for firmware, which needs " +
            std::to_string(Panel::firmwarePacketSize) + ".",
        std::string(isKept ? "Of a panel that announces less than 1025 bytes the library does not believe it.\n" : "") +
            "All else works. The limit is the panel's own, and nothing on this host raises it: its maker has to. This "
            "shows it:",
        {"panelctl info --panel " + panel.place});
}

void Examination::lookAtAutosuspend(const PanelFacts& panel)
{
    if (panel.powerControl.empty())
        return leaveOut("autosuspend", "sysfs does not say whether it may be suspended", panel.place);
    if (panel.powerControl != "auto")
        return pass("autosuspend", "the kernel does not suspend it", panel.place);
    add(Severity::Warning, "autosuspend", Ailment::Autosuspend, panel.place,
        "the kernel may suspend it (autosuspend is on).",
        "As long as no program has it open, that is. Not every panel comes back as it was. Until it is plugged in "
        "anew,\n"
        "this keeps it awake; a udev rule with ATTR{power/control}=\"on\" does for good.",
        {"echo on | sudo tee " + sysfsOf(panel, "power/control")});
}

void Examination::lookAtScatterGather(const PanelFacts& panel)
{
    if (!panel.capabilities)
        return leaveOut("scatter-gather", "its bus could not be asked what it is capable of", panel.place);
    if ((*panel.capabilities & USBDEVFS_CAP_BULK_SCATTER_GATHER) != 0)
        return pass("scatter-gather", "its bus takes a read in one piece", panel.place);
    add(Severity::Warning, "scatter-gather", Ailment::NoScatterGather, panel.place,
        "its host controller has no scatter-gather.",
        "libusb splits reads there, and may lose count when a panel sends too much: reads stop for good then.\n"
        "Plug the panel into a port of an xHCI or EHCI controller, if there is one:",
        {"lsusb -t"});
}

bool Examination::isAnyDenied() const
{
    return std::any_of(m_facts.panels.begin(), m_facts.panels.end(), isDenied);
}

bool Examination::isRuleNeeded() const
{
    return isAnyDenied() || (m_facts.panels.empty() && !m_facts.isRoot);
}

const GroupFacts* Examination::findGroup(const std::string& name) const
{
    const auto found = std::find_if(m_facts.allGroups.begin(), m_facts.allGroups.end(),
                                    [&name](const GroupFacts& group) { return group.name == name; });
    return found != m_facts.allGroups.end() ? &*found : nullptr;
}

std::string Examination::sysfsOf(const PanelFacts& panel, const std::string& attribute) const
{
    return "/sys/bus/usb/devices/" + panel.place + "/" + attribute;
}

void Examination::pass(const char* check, const std::string& text, const std::string& place)
{
    m_findings.push_back({Severity::Ok, check, {}, place, text, "", {}});
}

void Examination::leaveOut(const char* check, const std::string& text, const std::string& place)
{
    m_findings.push_back({Severity::Unknown, check, {}, place, text, "", {}});
}

void Examination::add(Severity severity, const char* check, Ailment ailment, const std::string& place,
                      const std::string& text, const std::string& reason, std::vector<std::string> commands)
{
    m_findings.push_back({severity, check, ailment, place, text, reason, std::move(commands)});
}

} // namespace

std::vector<Finding> judge(const DoctorFacts& facts)
{
    return Examination(facts).conduct();
}

const Finding* findWorst(const std::vector<Finding>& findings)
{
    // No udevd is no news on many a small system: as a warning it is the last that counts.
    const auto isMinor = [](const Finding& finding) {
        return finding.severity == Severity::Warning && finding.ailment == Ailment::NoUdevd;
    };
    const auto isWorse = [&isMinor](const Finding& left, const Finding& right) {
        if (left.severity != right.severity)
            return left.severity > right.severity;
        return isMinor(left) != isMinor(right) ? isMinor(right) : left.ailment < right.ailment;
    };
    const auto worst = std::min_element(findings.begin(), findings.end(), isWorse);
    return worst != findings.end() && worst->ailment ? &*worst : nullptr;
}

} // namespace Vantor
