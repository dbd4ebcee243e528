#include "panelctl/doctor/Judgement.h"
#include "tests/support/TemporaryFolder.h"

#include <cerrno>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/usbdevice_fs.h>

namespace Vantor {

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Severity = Finding::Severity;

constexpr gid_t plugdevNumber = 46;

const std::string ruleOfThisBuild =
    "# A comment.\n"
    "ATTR{idVendor}==\"dead\", ATTR{idProduct}==\"beef\", MODE=\"0660\", GROUP=\"plugdev\", TAG+=\"uaccess\"\n"
    "ATTR{idVendor}==\"1a2b\", ATTR{idProduct}==\"beef\", MODE=\"0660\", GROUP=\"plugdev\", TAG+=\"uaccess\"\n";
const std::string ruleOfAnOlderBuild =
    "ATTR{idVendor}==\"dead\", ATTR{idProduct}==\"beef\", MODE=\"0660\", GROUP=\"plugdev\", TAG+=\"uaccess\"\n";

PanelFacts healthyPanel()
{
    PanelFacts panel;
    panel.place = "1-4";
    panel.id = "dead:beef";
    panel.node = {"/dev/bus/usb/001/007", 0, "crw-rw---- root plugdev"};
    panel.interface = "1-4:1.0";
    panel.driver = "usbfs"; // this process's own claim
    panel.powerControl = "on";
    panel.capabilities = USBDEVFS_CAP_BULK_SCATTER_GATHER;
    panel.state = PanelFacts::State::Described;
    panel.description = "Bench panel";
    panel.packetLimit = 4120;
    panel.announcedLimit = 4120;
    return panel;
}

// An ordinary user, in the group, with a panel that can be used.
DoctorFacts healthyMachine()
{
    DoctorFacts facts;
    facts.knownIds = {"dead:beef", "1a2b:beef"};
    facts.ownRule = ruleOfThisBuild;
    facts.rule = RuleFile{"/lib/udev/rules.d/70-morvane-panel.rules", ruleOfThisBuild};
    facts.ruleFolder = "/etc/udev/rules.d";
    facts.user = "ann";
    facts.groups = {1000, plugdevNumber};
    facts.allGroups = {{"root", 0, {}}, {"plugdev", plugdevNumber, {"ann"}}, {"ann", 1000, {}}};
    facts.panels = {healthyPanel()};
    return facts;
}

// A panel that could not be opened; 0: for no reason of its node's.
DoctorFacts machineWithout(int error)
{
    DoctorFacts facts = healthyMachine();
    facts.panels.front().node = {"/dev/bus/usb/001/007", error, "crw-rw---- root plugdev"};
    facts.panels.front().state = PanelFacts::State::NeverOpened;
    facts.panels.front().driver = "";
    facts.panels.front().capabilities.reset();
    return facts;
}

DoctorFacts busyMachine()
{
    DoctorFacts facts = machineWithout(0);
    facts.panels.front().driver = "usbfs";
    facts.panels.front().failure = "claim: LIBUSB_ERROR_BUSY";
    facts.panels.front().isBusy = true;
    return facts;
}

// Of all findings that are not well.
std::vector<Finding> illsOf(const DoctorFacts& facts)
{
    std::vector<Finding> ills;
    for (const Finding& finding : judge(facts))
        if (finding.ailment)
            ills.push_back(finding);
    return ills;
}

// The exit code is the only ill's.
Finding onlyIllOf(const DoctorFacts& facts)
{
    const std::vector<Finding> ills = illsOf(facts);
    EXPECT_EQ(ills.size(), 1U);
    return ills.empty() ? Finding{Severity::Ok, "", {}, "", "", "", {}} : ills.front();
}

int exitCodeOf(const DoctorFacts& facts)
{
    const std::vector<Finding> findings = judge(facts);
    const Finding* const worst = findWorst(findings);
    return worst != nullptr ? rowOf(*worst->ailment).exitCode : 0;
}

} // namespace

TEST(Judgement, everythingWell_isALineForEachCheck)
{
    std::vector<std::string> lines;
    for (const Finding& finding : judge(healthyMachine())) {
        EXPECT_EQ(finding.severity, Severity::Ok) << finding.text;
        lines.push_back(std::string(finding.check) + "|" + finding.place + "|" + finding.text);
    }
    EXPECT_THAT(
        lines,
        ElementsAre(
            "hotplug||libusb tells of devices that come and go", "panel|1-4|panel dead:beef is on the bus",
            "udevd||udevd runs", "rule||/lib/udev/rules.d/70-morvane-panel.rules is this build's udev rule",
            "group||ann is in plugdev, to which the rule gives panels", "node|1-4|ann may open /dev/bus/usb/001/007",
            "claim|1-4|the library opens and claims it", "answer|1-4|it says that it is: Bench panel",
            "packet-limit|1-4|packets of 4120 bytes take firmware", "autosuspend|1-4|the kernel does not suspend it",
            "scatter-gather|1-4|its bus takes a read in one piece"));
    EXPECT_EQ(exitCodeOf(healthyMachine()), 0);
}

TEST(Judgement, noHotplug_isAnErrorBeforeAllOthers)
{
    DoctorFacts facts = healthyMachine();
    facts.hasHotplug = false;
    facts.panels.front().state = PanelFacts::State::NotListed;
    const Finding ill = onlyIllOf(facts);
    EXPECT_EQ(ill.severity, Severity::Error);
    EXPECT_EQ(ill.ailment, Ailment::NoHotplug);
    EXPECT_THAT(ill.commands, ElementsAre("sudo apt-get install --reinstall libusb-1.0-0"));
    EXPECT_EQ(exitCodeOf(facts), 10);
}

// LIBUSB_ERROR_IO
TEST(Judgement, noLibusb_isAnErrorBeforeAllOthers)
{
    DoctorFacts facts = machineWithout(0);
    facts.libusbError = -1;
    facts.panels.front().state = PanelFacts::State::NotListed;
    const Finding ill = onlyIllOf(facts);
    EXPECT_EQ(ill.severity, Severity::Error);
    EXPECT_EQ(ill.ailment, Ailment::NoLibusb);
    EXPECT_EQ(ill.text, "libusb does not start (LIBUSB_ERROR_IO).");
    EXPECT_THAT(ill.reason, HasSubstr("ulimit -n"));
    EXPECT_THAT(ill.reason, HasSubstr("/dev/bus/usb"));
    facts.panels.clear();
    EXPECT_EQ(exitCodeOf(facts), 24);
}

TEST(Judgement, panelThatLeft_isARemarkBesideOneThatStayed)
{
    DoctorFacts facts = healthyMachine();
    facts.departed = {healthyPanel()};
    facts.departed.front().place = "1-5";
    EXPECT_THAT(illsOf(facts), IsEmpty());
    const Finding remark = judge(facts)[2];
    EXPECT_EQ(remark.severity, Severity::Unknown);
    EXPECT_EQ(remark.place, "1-5");
    EXPECT_EQ(remark.text, "panel dead:beef left while it was looked at");
}

TEST(Judgement, onlyPanelThatLeft_isNoPanel)
{
    DoctorFacts facts = healthyMachine();
    facts.departed.swap(facts.panels);
    const Finding ill = onlyIllOf(facts);
    EXPECT_EQ(ill.ailment, Ailment::NoPanel);
    EXPECT_EQ(ill.text, "no panel was on the bus all the time.");
    EXPECT_THAT(ill.commands, ElementsAre("panelctl doctor"));
    EXPECT_EQ(exitCodeOf(facts), 3);
}

TEST(Judgement, panelThatCame_isNotJudged)
{
    DoctorFacts facts = healthyMachine();
    facts.newcomers = {healthyPanel()};
    facts.newcomers.front().place = "1-5";
    facts.newcomers.front().state = PanelFacts::State::Silent;
    EXPECT_THAT(illsOf(facts), IsEmpty());
    EXPECT_EQ(judge(facts)[2].severity, Severity::Unknown);
    EXPECT_EQ(judge(facts)[2].text, "panel dead:beef came while the others were looked at: ask again");
    facts.panels.clear();
    EXPECT_EQ(exitCodeOf(facts), 3);
}

TEST(Judgement, noPanel_namesTheIdsAndCountsWhatElseThereIs)
{
    DoctorFacts facts = healthyMachine();
    facts.panels.clear();
    facts.otherDevices = 1;
    const Finding ill = onlyIllOf(facts);
    EXPECT_EQ(ill.severity, Severity::Error);
    EXPECT_EQ(ill.ailment, Ailment::NoPanel);
    EXPECT_EQ(ill.text, "no panel is on the bus: no USB device has the id dead:beef or 1a2b:beef.");
    EXPECT_THAT(ill.reason, HasSubstr("there is 1, hubs not counted"));
    EXPECT_THAT(ill.commands, ElementsAre("lsusb -d :beef"));
    EXPECT_EQ(exitCodeOf(facts), 3);
}

TEST(Judgement, panelsProductOfAnotherVendor_isBuiltFor)
{
    DoctorFacts facts = healthyMachine();
    facts.panels.clear();
    facts.strangers.resize(1);
    facts.strangers.front().place = "2-1";
    facts.strangers.front().id = "0c0d:beef";
    const Finding ill = onlyIllOf(facts);
    EXPECT_EQ(ill.severity, Severity::Error);
    EXPECT_EQ(ill.ailment, Ailment::OtherId);
    EXPECT_EQ(ill.place, "2-1");
    EXPECT_EQ(ill.text, "device 0c0d:beef looks like a panel, but this build knows dead:beef or 1a2b:beef only.");
    EXPECT_THAT(ill.commands, ElementsAre(HasSubstr("-DMORVANE_PRODUCTION_VENDOR_ID=0x0c0d ")));
    EXPECT_EQ(exitCodeOf(facts), 11);
}

TEST(Judgement, vendorsOtherProduct_isNotBuiltFor)
{
    DoctorFacts facts = healthyMachine();
    facts.panels.clear();
    facts.strangers.resize(1);
    facts.strangers.front().id = "dead:0001";
    EXPECT_THAT(onlyIllOf(facts).commands, ElementsAre("lsusb -v -d dead:0001"));
}

// One panel well, one not: the exit code tells of the one that is not.
TEST(Judgement, strangerBesideAPanel_isAnErrorAllTheSame)
{
    DoctorFacts facts = healthyMachine();
    facts.strangers.resize(1);
    facts.strangers.front().id = "0c0d:beef";
    EXPECT_EQ(exitCodeOf(facts), 11);
}

TEST(Judgement, noUdevd_isAWarningWhileThePanelCanBeOpened)
{
    DoctorFacts facts = healthyMachine();
    facts.hasUdevd = false;
    const Finding ill = onlyIllOf(facts);
    EXPECT_EQ(ill.severity, Severity::Warning);
    EXPECT_EQ(ill.ailment, Ailment::NoUdevd);
    EXPECT_THAT(ill.commands, ElementsAre(HasSubstr("systemctl start systemd-udevd"), HasSubstr("udevadm trigger")));
    EXPECT_EQ(exitCodeOf(facts), 12);
}

// Of a small system with a static /dev it says nothing new.
TEST(Judgement, noUdevd_isTheLastOfTheWarnings)
{
    DoctorFacts facts = healthyMachine();
    facts.hasUdevd = false;
    facts.panels.front().capabilities = USBDEVFS_CAP_ZERO_PACKET;
    EXPECT_EQ(illsOf(facts).size(), 2U);
    EXPECT_EQ(exitCodeOf(facts), 23);
}

TEST(Judgement, noUdevd_isTheErrorWhenThePanelCanNot)
{
    DoctorFacts facts = machineWithout(EACCES);
    facts.hasUdevd = false;
    EXPECT_EQ(onlyIllOf(facts).severity, Severity::Error);
    EXPECT_EQ(exitCodeOf(facts), 12);
}

TEST(Judgement, noRule_isInstalledByCommands)
{
    DoctorFacts facts = machineWithout(EACCES);
    facts.rule.reset();
    const Finding ill = onlyIllOf(facts);
    EXPECT_EQ(ill.severity, Severity::Error);
    EXPECT_EQ(ill.ailment, Ailment::NoRule);
    EXPECT_THAT(ill.commands,
                ElementsAre("sudo mkdir -p /etc/udev/rules.d",
                            "panelctl doctor --rule | sudo tee /etc/udev/rules.d/70-morvane-panel.rules > /dev/null",
                            "sudo udevadm control --reload",
                            "sudo udevadm trigger --action=add --subsystem-match=usb"));
    EXPECT_EQ(exitCodeOf(facts), 13);
}

// Unless it goes first, the rule would be written into /dev/null.
TEST(Judgement, ruleThatIsMasked_isRemovedFirst)
{
    DoctorFacts facts = machineWithout(EACCES);
    facts.rule = RuleFile{"/etc/udev/rules.d/70-morvane-panel.rules", "", true};
    const Finding ill = onlyIllOf(facts);
    EXPECT_EQ(ill.severity, Severity::Error);
    EXPECT_EQ(ill.ailment, Ailment::NoRule);
    EXPECT_THAT(ill.text, HasSubstr("/etc/udev/rules.d/70-morvane-panel.rules is masked"));
    ASSERT_EQ(ill.commands.size(), 5U);
    EXPECT_EQ(ill.commands[0], "sudo rm /etc/udev/rules.d/70-morvane-panel.rules");
    EXPECT_THAT(ill.commands[2], HasSubstr("| sudo tee /etc/udev/rules.d/70-morvane-panel.rules"));
    facts.panels = {healthyPanel()};
    EXPECT_THAT(illsOf(facts), IsEmpty());
}

TEST(Judgement, ruleThatCanNotBeRead_isARemark)
{
    DoctorFacts facts = machineWithout(EACCES);
    facts.rule = RuleFile{"/etc/udev/rules.d/70-morvane-panel.rules", "", false, EISDIR};
    EXPECT_EQ(judge(facts)[3].severity, Severity::Unknown);
    EXPECT_THAT(judge(facts)[3].text, HasSubstr("rules can't be read (Is a directory)"));
    EXPECT_EQ(onlyIllOf(facts).ailment, Ailment::NodeDenied);
    EXPECT_THAT(onlyIllOf(facts).reason, HasSubstr("of the rule nothing is known"));
    facts.panels = {healthyPanel()};
    EXPECT_THAT(illsOf(facts), IsEmpty());
}

// That would change this system.
TEST(Judgement, whatIsAmissInAnotherSystem_getsNoCommands)
{
    DoctorFacts facts = machineWithout(EACCES);
    facts.root = "/srv/image";
    EXPECT_THAT(onlyIllOf(facts).commands, IsEmpty()) << "the node's";
    facts.rule.reset();
    facts.groups = {1000};
    facts.hasUdevd = false;
    const std::vector<Finding> ills = illsOf(facts);
    ASSERT_EQ(ills.size(), 3U);
    for (const Finding& ill : ills) {
        EXPECT_THAT(ill.commands, IsEmpty());
        EXPECT_THAT(ill.reason, HasSubstr("belongs into the system in /srv/image, not into this one"));
    }
    DoctorFacts busy = busyMachine();
    busy.root = "/srv/image";
    busy.panels.front().holders = {{77, "product", "ann"}};
    EXPECT_THAT(onlyIllOf(busy).commands, ElementsAre("kill 77")) << "the panel is this system's";
}

TEST(Judgement, root_needsNoSudo)
{
    DoctorFacts facts = healthyMachine();
    facts.isRoot = true;
    facts.user = "root";
    facts.hasUdevd = false;
    EXPECT_THAT(onlyIllOf(facts).commands,
                ElementsAre("systemctl start systemd-udevd || /lib/systemd/systemd-udevd --daemon",
                            "udevadm trigger --action=add --subsystem-match=usb"));
    facts = busyMachine();
    facts.isRoot = true;
    facts.panels.front().holders = {{4242, "panelctl", "bob"}};
    EXPECT_THAT(onlyIllOf(facts).commands, ElementsAre("kill 4242"));
}

TEST(Judgement, userWithoutAName_isAskedFor)
{
    DoctorFacts facts = machineWithout(EACCES);
    facts.user = "uid 1000";
    facts.groups = {1000};
    EXPECT_EQ(onlyIllOf(facts).commands.front(), "sudo usermod -aG plugdev \"$(id -un)\"");
}

TEST(Judgement, noRule_isWellWhereTheNodeCanBeOpened)
{
    DoctorFacts facts = healthyMachine();
    facts.rule.reset();
    EXPECT_THAT(illsOf(facts), IsEmpty());
}

TEST(Judgement, noRuleAndNoPanel_isAWarningToAnOrdinaryUserAlone)
{
    DoctorFacts facts = healthyMachine();
    facts.rule.reset();
    facts.panels.clear();
    ASSERT_EQ(illsOf(facts).size(), 2U);
    EXPECT_EQ(illsOf(facts)[1].ailment, Ailment::NoRule);
    EXPECT_EQ(illsOf(facts)[1].severity, Severity::Warning);
    EXPECT_EQ(exitCodeOf(facts), 3);
    facts.isRoot = true;
    EXPECT_EQ(onlyIllOf(facts).ailment, Ailment::NoPanel);
}

TEST(Judgement, ruleOfAnOlderBuild_saysWhichIdItDoesNotName)
{
    DoctorFacts facts = machineWithout(EACCES);
    facts.rule->text = ruleOfAnOlderBuild;
    const Finding ill = onlyIllOf(facts);
    EXPECT_EQ(ill.severity, Severity::Error);
    EXPECT_EQ(ill.ailment, Ailment::OldRule);
    EXPECT_EQ(ill.text, "/lib/udev/rules.d/70-morvane-panel.rules is not the udev rule of this build: it does not name "
                        "1a2b:beef.");
    EXPECT_THAT(ill.commands, ElementsAre(HasSubstr("mkdir"), HasSubstr("panelctl doctor --rule"),
                                          HasSubstr("control --reload"), HasSubstr("udevadm trigger")));
    EXPECT_EQ(exitCodeOf(facts), 14);
}

TEST(Judgement, ruleThatDiffersInCommentsAlone_isThisBuilds)
{
    DoctorFacts facts = machineWithout(EACCES);
    facts.rule->text = "# Another comment.\n\n  " + ruleOfThisBuild;
    EXPECT_EQ(onlyIllOf(facts).ailment, Ailment::NodeDenied);
}

TEST(Judgement, userNotInTheGroup_isPutThere)
{
    DoctorFacts facts = machineWithout(EACCES);
    facts.groups = {1000};
    facts.allGroups[1].members.clear();
    const Finding ill = onlyIllOf(facts);
    EXPECT_EQ(ill.severity, Severity::Error);
    EXPECT_EQ(ill.ailment, Ailment::NotInGroup);
    EXPECT_EQ(ill.text, "ann is not in the group plugdev, to which the udev rule gives panels.");
    EXPECT_THAT(ill.commands, ElementsAre("sudo usermod -aG plugdev ann", "newgrp plugdev"));
    EXPECT_EQ(exitCodeOf(facts), 15);
}

TEST(Judgement, userPutInTheGroupSinceLogin_logsInAnew)
{
    DoctorFacts facts = machineWithout(EACCES);
    facts.groups = {1000};
    EXPECT_EQ(onlyIllOf(facts).text, "ann is in the group plugdev, but this login does not know it yet.");
    EXPECT_THAT(onlyIllOf(facts).commands, ElementsAre("newgrp plugdev"));
    EXPECT_EQ(exitCodeOf(facts), 15);
}

TEST(Judgement, systemWithoutTheGroup_getsItFirst)
{
    DoctorFacts facts = machineWithout(EACCES);
    facts.allGroups.erase(facts.allGroups.begin() + 1);
    EXPECT_THAT(onlyIllOf(facts).commands,
                ElementsAre("sudo groupadd --system plugdev", "sudo usermod -aG plugdev ann",
                            "sudo udevadm control --reload", HasSubstr("udevadm trigger"), "newgrp plugdev"));
}

// Both have to be mended; the rule's exit code comes first.
TEST(Judgement, noRuleAndNotInTheGroup_areBothTold)
{
    DoctorFacts facts = machineWithout(EACCES);
    facts.rule.reset();
    facts.groups = {1000};
    facts.allGroups[1].members.clear();
    ASSERT_EQ(illsOf(facts).size(), 2U);
    EXPECT_EQ(illsOf(facts)[1].ailment, Ailment::NotInGroup);
    EXPECT_EQ(exitCodeOf(facts), 13);
}

TEST(Judgement, nodeDeniedInSpiteOfRuleAndGroup_isOlderThanTheRule)
{
    DoctorFacts facts = machineWithout(EACCES);
    facts.panels.front().node.access = "crw------- root root";
    const Finding ill = onlyIllOf(facts);
    EXPECT_EQ(ill.severity, Severity::Error);
    EXPECT_EQ(ill.ailment, Ailment::NodeDenied);
    EXPECT_EQ(ill.place, "1-4");
    EXPECT_EQ(ill.text, "ann may not open /dev/bus/usb/001/007 (Permission denied).");
    EXPECT_THAT(ill.reason, HasSubstr("It is crw------- root root."));
    EXPECT_THAT(ill.commands, ElementsAre("sudo udevadm trigger --action=add --subsystem-match=usb"));
    EXPECT_EQ(exitCodeOf(facts), 16);
}

TEST(Judgement, nodeThatIsNotThere_isNotTheRulesFault)
{
    DoctorFacts facts = machineWithout(ENOENT);
    facts.rule.reset();
    EXPECT_EQ(onlyIllOf(facts).ailment, Ailment::NodeDenied);
    EXPECT_THAT(onlyIllOf(facts).text, HasSubstr("(No such file or directory)"));
    EXPECT_THAT(onlyIllOf(facts).commands, ElementsAre("findmnt --target /dev")) << "nothing that changes /dev";
}

TEST(Judgement, kernelDriver_isUnbound)
{
    DoctorFacts facts = machineWithout(0);
    facts.panels.front().driver = "usbserial_generic";
    facts.panels.front().holders = {{77, "idle", "ann"}};
    facts.panels.front().capabilities = USBDEVFS_CAP_BULK_SCATTER_GATHER;
    const Finding ill = onlyIllOf(facts);
    EXPECT_EQ(ill.severity, Severity::Error);
    EXPECT_EQ(ill.ailment, Ailment::KernelDriver);
    EXPECT_THAT(ill.commands, ElementsAre("echo 1-4:1.0 | sudo tee /sys/bus/usb/drivers/usbserial_generic/unbind"));
    EXPECT_EQ(exitCodeOf(facts), 17);
}

TEST(Judgement, claimed_namesEachHolderAndHowToEndIt)
{
    DoctorFacts facts = busyMachine();
    facts.panels.front().holders = {{77, "product", "ann"}, {4242, "panelctl", "bob"}};
    const Finding ill = onlyIllOf(facts);
    EXPECT_EQ(ill.severity, Severity::Error);
    EXPECT_EQ(ill.ailment, Ailment::Claimed);
    EXPECT_EQ(ill.reason, "product (process 77, user ann) has /dev/bus/usb/001/007 open.\n"
                          "panelctl (process 4242, user bob) has /dev/bus/usb/001/007 open.\n"
                          "Only one program at a time can.");
    EXPECT_THAT(ill.commands, ElementsAre("kill 77", "sudo kill 4242"));
    EXPECT_EQ(exitCodeOf(facts), 18);
}

// With it the doctor itself would end.
TEST(Judgement, simulatorThatTheDoctorRunsIn_isNotEnded)
{
    DoctorFacts facts = busyMachine();
    facts.panels.front().holders = {{76, "panelsim", "ann", true}, {77, "product", "ann"}};
    EXPECT_THAT(onlyIllOf(facts).commands, ElementsAre("kill 77"));
    EXPECT_THAT(onlyIllOf(facts).reason,
                HasSubstr("panelsim (process 76) has its node open, too: it is the simulator"));
    facts.panels.front().holders.pop_back();
    EXPECT_THAT(onlyIllOf(facts).commands, ElementsAre("panelctl doctor"));
    EXPECT_THAT(onlyIllOf(facts).reason, HasSubstr("No other process has"));
}

TEST(Judgement, claimedByAProcessThatIsHidden_asksForRoot)
{
    DoctorFacts facts = busyMachine();
    facts.hasHiddenProcesses = true;
    EXPECT_EQ(onlyIllOf(facts).ailment, Ailment::Claimed);
    EXPECT_THAT(onlyIllOf(facts).reason, HasSubstr("ann may not see, but root may"));
    EXPECT_THAT(onlyIllOf(facts).commands, ElementsAre("sudo panelctl doctor"));
}

TEST(Judgement, claimedByAProcessThatHasEnded_looksAgain)
{
    EXPECT_EQ(onlyIllOf(busyMachine()).ailment, Ailment::Claimed);
    EXPECT_THAT(onlyIllOf(busyMachine()).commands, ElementsAre("panelctl doctor"));
}

// What a process is called, it says itself.
TEST(Judgement, nameOfAProcess_isMadePrintable)
{
    DoctorFacts facts = busyMachine();
    facts.panels.front().holders = {{77, "\x1b[2J", "ann"}};
    EXPECT_THAT(onlyIllOf(facts).reason, HasSubstr("?[2J (process 77, user ann)"));
}

TEST(Judgement, openedByNobodyAndNotBusy_isSetUpAnew)
{
    DoctorFacts facts = machineWithout(0);
    facts.panels.front().failure = "open: LIBUSB_ERROR_IO";
    facts.panels.front().holders = {{77, "bystander", "ann"}};
    const Finding ill = onlyIllOf(facts);
    EXPECT_EQ(ill.severity, Severity::Error);
    EXPECT_EQ(ill.ailment, Ailment::Unusable);
    EXPECT_EQ(ill.text, "the panel could not be opened and claimed.");
    EXPECT_THAT(ill.reason, ::testing::StartsWith("libusb's reason: open: LIBUSB_ERROR_IO.\n"));
    EXPECT_THAT(ill.commands, ElementsAre("echo 0 | sudo tee /sys/bus/usb/devices/1-4/authorized",
                                          "echo 1 | sudo tee /sys/bus/usb/devices/1-4/authorized"));
    EXPECT_EQ(exitCodeOf(facts), 19);
    facts.panels.front().state = PanelFacts::State::GivenUp;
    EXPECT_EQ(onlyIllOf(facts).text, "the panel was opened, and given up after a USB error.");
    facts.panels.front().state = PanelFacts::State::NotListed;
    EXPECT_EQ(onlyIllOf(facts).text, "the library does not find the panel.");
}

// A handle of its own that the library has not closed yet is no other program's.
TEST(Judgement, givenUpPanelThatSomebodyHasOpen_isNotCalledClaimed)
{
    DoctorFacts facts = busyMachine();
    facts.panels.front().state = PanelFacts::State::GivenUp;
    EXPECT_EQ(onlyIllOf(facts).ailment, Ailment::Unusable);
}

TEST(Judgement, silentPanel_saysHowFarItGot)
{
    DoctorFacts facts = healthyMachine();
    facts.panels.front().state = PanelFacts::State::Silent;
    facts.panels.front().silence = "first line.\nsecond line.";
    const Finding ill = onlyIllOf(facts);
    EXPECT_EQ(ill.severity, Severity::Error);
    EXPECT_EQ(ill.ailment, Ailment::Silent);
    EXPECT_EQ(ill.text, "first line.");
    EXPECT_THAT(ill.reason, ::testing::StartsWith("second line.\n"));
    EXPECT_EQ(ill.commands.size(), 2U);
    EXPECT_EQ(exitCodeOf(facts), 20);
}

TEST(Judgement, packetLimitOneByteTooSmall_isAWarning)
{
    DoctorFacts facts = healthyMachine();
    facts.panels.front().packetLimit = 4119;
    facts.panels.front().announcedLimit = 4119;
    const Finding ill = onlyIllOf(facts);
    EXPECT_EQ(ill.severity, Severity::Warning);
    EXPECT_EQ(ill.ailment, Ailment::PacketLimit);
    EXPECT_EQ(ill.text, "it announces packets of at most 4119 bytes: too few for firmware, which needs 4120.");
    EXPECT_THAT(ill.commands, ElementsAre("panelctl info --panel 1-4"));
    EXPECT_EQ(exitCodeOf(facts), 21);
}

TEST(Judgement, packetLimitThatTheLibraryDoesNotTake_isToldBesideItsOwn)
{
    DoctorFacts facts = healthyMachine();
    facts.panels.front().announcedLimit = 512;
    facts.panels.front().packetLimit = 1100;
    EXPECT_EQ(onlyIllOf(facts).text, "it announces packets of at most 512 bytes, for which the library takes 1100: too "
                                     "few for firmware, which needs 4120.");
}

TEST(Judgement, autosuspend_isAWarning)
{
    DoctorFacts facts = healthyMachine();
    facts.panels.front().powerControl = "auto";
    const Finding ill = onlyIllOf(facts);
    EXPECT_EQ(ill.severity, Severity::Warning);
    EXPECT_EQ(ill.ailment, Ailment::Autosuspend);
    EXPECT_THAT(ill.commands, ElementsAre("echo on | sudo tee /sys/bus/usb/devices/1-4/power/control"));
    EXPECT_EQ(exitCodeOf(facts), 22);
}

TEST(Judgement, noScatterGather_isAWarning)
{
    DoctorFacts facts = healthyMachine();
    facts.panels.front().capabilities = USBDEVFS_CAP_ZERO_PACKET;
    const Finding ill = onlyIllOf(facts);
    EXPECT_EQ(ill.severity, Severity::Warning);
    EXPECT_EQ(ill.ailment, Ailment::NoScatterGather);
    EXPECT_THAT(ill.commands, ElementsAre("lsusb -t"));
    EXPECT_EQ(exitCodeOf(facts), 23);
}

TEST(Judgement, whatCouldNotBeLookedAt_isNoIll)
{
    DoctorFacts facts = healthyMachine();
    facts.panels.front().powerControl.clear();
    facts.panels.front().capabilities.reset();
    facts.panels.front().node.path.clear();
    EXPECT_THAT(illsOf(facts), IsEmpty());
    const std::vector<Finding> findings = judge(facts);
    EXPECT_EQ(std::count_if(findings.begin(), findings.end(),
                            [](const Finding& finding) { return finding.severity == Severity::Unknown; }),
              3);
}

// However early a warning's case, an error counts for more.
TEST(Judgement, errorBehindAWarning_isTheWorst)
{
    DoctorFacts facts = busyMachine();
    facts.hasUdevd = false;
    facts.panels.front().holders = {{77, "product", "ann"}};
    EXPECT_EQ(illsOf(facts).front().ailment, Ailment::NoUdevd);
    EXPECT_EQ(exitCodeOf(facts), 18);
}

TEST(Judgement, secondPanelsError_isFound)
{
    DoctorFacts facts = healthyMachine();
    facts.panels.push_back(healthyPanel());
    facts.panels.back().place = "1-5";
    facts.panels.back().state = PanelFacts::State::NeverOpened;
    facts.panels.back().isBusy = true;
    EXPECT_EQ(onlyIllOf(facts).place, "1-5");
    EXPECT_EQ(exitCodeOf(facts), 18);
}

TEST(JudgementAilments, rows_haveNamesAndExitCodesOfTheirOwn)
{
    std::set<std::string> names;
    std::set<int> codes{0, 1, 2, 4, 5, 6, 7}; // other commands'
    for (const AilmentRow& row : listAilments()) {
        EXPECT_TRUE(names.insert(row.name).second) << row.name;
        EXPECT_TRUE(codes.insert(row.exitCode).second) << row.name;
        EXPECT_LT(row.exitCode, 120) << "panelsim's own codes";
    }
}

TEST(JudgementAilments, rows_areInTheDocument)
{
    const std::string document = contentOf(MORVANE_PANELCTL_DOCUMENT);
    for (const AilmentRow& row : listAilments())
        EXPECT_THAT(document, HasSubstr("\n| " + std::to_string(row.exitCode) + " | `" + row.name + "` |"));
}

} // namespace Vantor
