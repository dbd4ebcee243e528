#include "panelctl/doctor/PanelRule.h"
#include "tests/support/JsonLines.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ToolRun.h"

#include <cstring>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Vantor {

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// A system where nothing is amiss, behind --root.
class PanelctlDoctor : public ::testing::Test {
protected:
    PanelctlDoctor()
    {
        const std::string user = std::to_string(geteuid());
        const std::string group = std::to_string(getegid());
        write("/etc/passwd", "me:x:" + user + ":" + group + "::/:/bin/sh\n");
        write("/etc/group", "plugdev:x:" + group + ":me\n");
        write(rule, PanelRule::text);
        listen("/run/udev/control");
    }
    ~PanelctlDoctor() override { close(m_udevd); }

    void write(const std::string& path, const std::string& text)
    {
        std::filesystem::create_directories(std::filesystem::path(root() + path).parent_path());
        writeFile(root() + path, text);
    }

    void endUdevd()
    {
        close(m_udevd);
        m_udevd = -1;
    }

    std::string root() const { return m_folder.getPath(); }

    ToolResult examine(const ToolRun::Arguments& bus, const ToolRun::Arguments& more = {}) const
    {
        ToolRun::Arguments arguments{"doctor", "--root", root()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runTool(panelctlOn(bus, arguments));
    }

    const std::string rule = "/lib/udev/rules.d/70-morvane-panel.rules";

private:
    // What udevd has open.
    void listen(const std::string& path)
    {
        std::filesystem::create_directories(std::filesystem::path(root() + path).parent_path());
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, (root() + path).c_str(), sizeof address.sun_path - 1);
        m_udevd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        if (bind(m_udevd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("no socket");
    }

    const TemporaryFolder m_folder;
    int m_udevd = -1;
};

// Root's commands have none.
const std::string sudo = geteuid() == 0 ? "" : "sudo ";

const std::string onTheBus = "ok       libusb tells of devices that come and go\n"
                             "ok       1-1: panel dead:beef is on the bus\n"
                             "ok       udevd runs\n"
                             "ok       /lib/udev/rules.d/70-morvane-panel.rules is this build's udev rule\n"
                             "ok       me is in plugdev, to which the rule gives panels\n"
                             "ok       1-1: me may open /dev/bus/usb/001/002\n";

} // namespace

TEST_F(PanelctlDoctor, panelThatIsWell_isToldCheckByCheck)
{
    const ToolResult result = examine({});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, onTheBus + "ok       1-1: the library opens and claims it\n"
                                        "ok       1-1: it says that it is: Simulated panel\n"
                                        "ok       1-1: packets of 8192 bytes take firmware\n"
                                        "ok       1-1: the kernel does not suspend it\n"
                                        "ok       1-1: its bus takes a read in one piece\n"
                                        "Nothing is amiss.\n");
    EXPECT_EQ(result.errors, "");
}

// By the shell, as a limit of this process would be panelsim's, too.
#ifndef MORVANE_SANITIZED // which opens files of its own
TEST_F(PanelctlDoctor, libusbThatDoesNotStart_is24AndNoCrash)
{
    const auto withFewFiles = [](const std::string& command) {
        return runTool({"/bin/sh", "-c", "ulimit -n 8; exec " MORVANE_PANELCTL " " + command});
    };
    const ToolResult result = withFewFiles("doctor --root " + root());
    EXPECT_EQ(result.exitCode, 24);
    EXPECT_THAT(result.output, HasSubstr("error    libusb does not start (LIBUSB_ERROR_"));
    EXPECT_THAT(result.output, HasSubstr("ulimit -n"));
    const ToolResult list = withFewFiles("list");
    EXPECT_EQ(list.exitCode, 1);
    EXPECT_EQ(list.errors.find("panelctl: libusb does not start (LIBUSB_ERROR_"), 0U) << list.errors;
    const ToolResult info = withFewFiles("--json info");
    const std::vector<nlohmann::json> objects = parseJsonLines(info.output);
    ASSERT_EQ(objects.size(), 1U);
    EXPECT_EQ(objects[0]["kind"], "no-libusb");
    EXPECT_EQ(objects[0]["exitCode"], 1);
}
#endif

TEST_F(PanelctlDoctor, panelThatLeavesMeanwhile_isNoPanel)
{
    const ToolResult result = examine({"--at", "0", "fault in silent sticky", "--at", "1s", "unplug"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_THAT(result.output, HasSubstr("-        1-1: panel dead:beef left while it was looked at\n"));
    EXPECT_THAT(result.output, HasSubstr("error    no panel was on the bus all the time.\n"));
}

// The first one is silent, so that it takes all its time.
TEST_F(PanelctlDoctor, panelThatComesMeanwhile_isNotJudged)
{
    const ToolResult result =
        examine({"--at", "0", "fault in silent sticky", "--at", "1s", "plug 1"}, {"--timeout", "3"});
    EXPECT_EQ(result.exitCode, 20);
    EXPECT_THAT(result.output, HasSubstr("-        1-2: panel dead:beef came while the others were looked at"));
    EXPECT_THAT(result.output, Not(HasSubstr("1-2: me may open")));
}

TEST_F(PanelctlDoctor, ruleThatIsADirectory_doesNotEndIt)
{
    std::filesystem::create_directories(root() + "/etc/udev/rules.d/70-morvane-panel.rules");
    const ToolResult result = examine({});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output, HasSubstr("-        /etc/udev/rules.d/70-morvane-panel.rules can't be read (Is a "));
}

TEST_F(PanelctlDoctor, rootThatIsNoFolder_is2)
{
    const ToolResult result = runTool(panelctl({"doctor", "--root", root() + "/none"}));
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.errors, HasSubstr("none' is not a folder"));
}

// The socket is named by the whole path.
TEST_F(PanelctlDoctor, rootThatIsRelative_isTheSame)
{
    const std::string tool = MORVANE_PANELCTL;
    const ToolResult result = runTool(
        {MORVANE_PANELSIM, "run", "--", "/bin/sh", "-c", "cd " + root() + "/run && " + tool + " doctor --root ../"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output, HasSubstr("ok       udevd runs\n"));
}

TEST_F(PanelctlDoctor, panelWhoseAnswersAreCut_isSaidToSendMalformedOnes)
{
    const ToolResult result = examine({"--at", "0", "fault in short=20 sticky"}, {"--timeout", "1"});
    EXPECT_EQ(result.exitCode, 20);
    EXPECT_THAT(result.output, HasSubstr("but 1 of its transfers came malformed and did not get through whole."));
}

TEST_F(PanelctlDoctor, noPanel_is3)
{
    const ToolResult result = examine({"--panels", "0"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_THAT(result.output, HasSubstr("error    no panel is on the bus: no USB device has the id dead:beef"));
    EXPECT_THAT(result.output, HasSubstr("\n           $ lsusb -d "));
    EXPECT_EQ(result.errors, "panelctl: a panel can't be used: no-panel.\n");
}

TEST_F(PanelctlDoctor, libusbWithoutHotplug_is10)
{
    const ToolResult result = runTool({"/usr/bin/env", "LD_PRELOAD=" MORVANE_NO_HOTPLUG, MORVANE_PANELSIM, "run", "--",
                                       MORVANE_PANELCTL, "doctor", "--root", root(), "--timeout", "0.2"});
    EXPECT_EQ(result.exitCode, 10);
    EXPECT_THAT(result.output, HasSubstr("error    this libusb can't tell of devices that come and go.\n"));
    EXPECT_THAT(result.output, HasSubstr("-        1-1: not tried: what is above comes first\n"));
}

TEST_F(PanelctlDoctor, anotherId_is11)
{
    const ToolResult result = examine({"--id", "0C0D:beef"});
    EXPECT_EQ(result.exitCode, 11);
    EXPECT_THAT(result.output, HasSubstr("error    1-1: device 0c0d:beef looks like a panel, but this build knows "));
    EXPECT_THAT(result.output, HasSubstr("-DMORVANE_PRODUCTION_VENDOR_ID=0x0c0d "));
}

TEST_F(PanelctlDoctor, noUdevd_is12)
{
    endUdevd();
    const ToolResult result = examine({});
    EXPECT_EQ(result.exitCode, 12);
    EXPECT_THAT(result.output, HasSubstr("warning  no udevd runs.\n"));
    EXPECT_EQ(result.errors, "panelctl: panels can be used, but something is amiss: no-udevd.\n");
    EXPECT_EQ(examine({"--max-packet", "4000"}).exitCode, 21) << "the panel's own comes first";
}

// Whoever may open the node needs neither.
TEST_F(PanelctlDoctor, noRuleAndNotInTheGroup_areWellWhereTheNodeCanBeOpened)
{
    write("/etc/group", "plugdev:x:64999:\n");
    EXPECT_EQ(examine({}).exitCode, 0);
    EXPECT_THAT(examine({}).output, HasSubstr("ok       me is not in plugdev, and needs not be\n"));
    std::filesystem::remove(root() + rule);
    EXPECT_EQ(examine({}).exitCode, 0);
    EXPECT_THAT(examine({}).output, HasSubstr("ok       no udev rule for panels, and me needs none\n"));
}

TEST_F(PanelctlDoctor, kernelDriver_is17)
{
    const ToolResult result = examine({"--kernel-driver", "usbserial_generic"});
    EXPECT_EQ(result.exitCode, 17);
    EXPECT_THAT(result.output, HasSubstr("error    1-1: the kernel's driver 'usbserial_generic' holds interface 0"));
    EXPECT_THAT(result.output,
                HasSubstr("$ echo 1-1:1.0 | " + sudo + "tee /sys/bus/usb/drivers/usbserial_generic/unbind\n"));
}

TEST_F(PanelctlDoctor, panelClaimedByAnotherProgram_is18AndNamesIt)
{
    const std::string tool = MORVANE_PANELCTL;
    const TemporaryFile log;
    const std::string script = tool + " watch --duration 20 > /dev/null & watch=$!; until grep -q claim " +
                               log.getPath() + "; do sleep 0.05; done; echo watch is $watch; " + tool +
                               " doctor --root " + root() + "; code=$?; kill $watch; wait; exit $code";
    const ToolResult result = runTool({MORVANE_PANELSIM, "run", "--log", log.getPath(), "--", "/bin/sh", "-c", script});
    EXPECT_EQ(result.exitCode, 18);
    const std::string process = result.output.substr(9, result.output.find('\n') - 9);
    EXPECT_THAT(result.output, HasSubstr("error    1-1: another program drives the panel.\n"));
    EXPECT_THAT(result.output,
                HasSubstr("\n           panelctl (process " + process + ", user me) has /dev/bus/usb/001/002 open.\n"));
    EXPECT_THAT(result.output, HasSubstr("\n           $ kill " + process + "\n"));
    EXPECT_THAT(result.output, HasSubstr("has its node open, too: it is the simulator that this runs in.\n"));
    EXPECT_EQ(result.output.find("$ kill "), result.output.rfind("$ kill ")) << "the simulator is not ended";
    EXPECT_THAT(result.output, HasSubstr("-        1-1: not asked: the panel is not open\n"));
}

TEST_F(PanelctlDoctor, panelGivenUpAfterAUsbError_is19)
{
    const ToolResult result = examine({"--at", "0", "fault out status=EIO sticky"});
    EXPECT_EQ(result.exitCode, 19);
    EXPECT_THAT(result.output, HasSubstr("error    1-1: the panel was opened, and given up after a USB error.\n"
                                         "           libusb's reason: "));
}

TEST_F(PanelctlDoctor, silentPanel_is20WithinTheTime)
{
    const ToolRun::Arguments doctor{"doctor", "--root", root(), "--timeout", "0.5"};
    ToolRun run(panelctlOn({"--at", "0", "fault in silent sticky"}, doctor));
    EXPECT_EQ(run.finish(), 20);
    EXPECT_LT(run.getSeconds(), 0.5 + 3 + 5);
    EXPECT_EQ(run.getOutput().find(onTheBus + "ok       1-1: the library opens and claims it\n"), 0U);
    EXPECT_THAT(run.getOutput(),
                HasSubstr("error    1-1: panel 0101 (1-1) has not sent its device information within 0.5 s.\n"
                          "           It took the request (endpoint 0x02) but has sent nothing at all"));
}

TEST_F(PanelctlDoctor, smallPackets_are21)
{
    EXPECT_EQ(examine({"--max-packet", "4120"}).exitCode, 0);
    const ToolResult result = examine({"--max-packet", "4119"});
    EXPECT_EQ(result.exitCode, 21);
    EXPECT_THAT(result.output, HasSubstr("warning  1-1: it announces packets of at most 4119 bytes"));
}

TEST_F(PanelctlDoctor, autosuspend_is22)
{
    const ToolResult result = examine({"--autosuspend"});
    EXPECT_EQ(result.exitCode, 22);
    EXPECT_THAT(result.output, HasSubstr("warning  1-1: the kernel may suspend it (autosuspend is on).\n"));
    EXPECT_THAT(result.output, HasSubstr("$ echo on | " + sudo + "tee /sys/bus/usb/devices/1-1/power/control\n"));
}

TEST_F(PanelctlDoctor, noScatterGather_is23)
{
    const ToolResult result = examine({"--no-scatter-gather"});
    EXPECT_EQ(result.exitCode, 23);
    EXPECT_THAT(result.output, HasSubstr("warning  1-1: its host controller has no scatter-gather.\n"));
}

TEST_F(PanelctlDoctor, json_isAnObjectForEachCheckAndTheErrorAtTheEnd)
{
    using Json = nlohmann::json;
    const ToolResult result = examine({"--autosuspend"}, {"--json"});
    EXPECT_EQ(result.exitCode, 22);
    EXPECT_EQ(result.errors, "");
    const std::vector<Json> objects = parseJsonLines(result.output);
    ASSERT_EQ(objects.size(), 12U);
    EXPECT_EQ(objects[0], (Json{{"event", "finding"},
                                {"check", "hotplug"},
                                {"severity", "ok"},
                                {"kind", nullptr},
                                {"place", nullptr},
                                {"text", "libusb tells of devices that come and go"},
                                {"hint", ""},
                                {"commands", Json::array()}}));
    Json warning = objects[9];
    EXPECT_NE(warning["hint"], "");
    warning.erase("hint");
    EXPECT_EQ(warning, (Json{{"event", "finding"},
                             {"check", "autosuspend"},
                             {"severity", "warning"},
                             {"kind", "autosuspend"},
                             {"place", "1-1"},
                             {"text", "the kernel may suspend it (autosuspend is on)."},
                             {"commands", {"echo on | " + sudo + "tee /sys/bus/usb/devices/1-1/power/control"}}}));
    EXPECT_EQ(objects[11], (Json{{"event", "error"},
                                 {"kind", "autosuspend"},
                                 {"text", "panels can be used, but something is amiss: autosuspend."},
                                 {"hint", ""},
                                 {"exitCode", 22}}));
}

TEST_F(PanelctlDoctor, jsonOfWhatCouldNotBeLookedAt_isUnknown)
{
    const ToolResult result =
        examine({"--at", "0", "fault in silent sticky"}, {"--json", "--timeout", "0.3", "--log-level", "0"});
    const std::vector<nlohmann::json> objects = parseJsonLines(result.output);
    ASSERT_EQ(objects.size(), 12U);
    EXPECT_EQ(objects[7]["kind"], "silent");
    EXPECT_EQ(objects[7]["severity"], "error");
    EXPECT_EQ(objects[8]["check"], "packet-limit");
    EXPECT_EQ(objects[8]["severity"], "unknown");
    EXPECT_EQ(objects[11]["exitCode"], 20);
}

TEST_F(PanelctlDoctor, oneOfTwoPanels_isFound)
{
    const ToolResult result = examine({"--panels", "2", "--at", "0", "fault 1 in silent sticky"}, {"--timeout", "0.5"});
    EXPECT_EQ(result.exitCode, 20);
    EXPECT_THAT(result.output, HasSubstr("ok       1-1: it says that it is: Simulated panel\n"));
    EXPECT_THAT(result.output, HasSubstr("error    1-2: panel 0102 (1-2) has not sent"));
}

TEST_F(PanelctlDoctor, rule_isPrintedAsItIsInstalled)
{
    const ToolResult result = runTool(panelctl({"doctor", "--rule"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, contentOf(MORVANE_PANEL_RULES));
    EXPECT_THAT(result.output, HasSubstr("GROUP=\"plugdev\""));
    EXPECT_THAT(result.output, Not(HasSubstr("@")));
}

TEST_F(PanelctlDoctor, help_tellsTheExitCodeOfEachCase)
{
    const std::string help = runTool(panelctl({"doctor", "--help"})).output;
    EXPECT_THAT(help, HasSubstr("\n  18   claimed            another program drives the panel\n"));
    EXPECT_THAT(help, HasSubstr("\n  3    no-panel           no panel on the bus\n"));
}

} // namespace Vantor
