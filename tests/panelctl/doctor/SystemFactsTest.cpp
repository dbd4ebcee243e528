#include "panelctl/doctor/SystemFacts.h"
#include "panelctl/doctor/PanelRule.h"
#include "tests/support/TemporaryFolder.h"

#include <cerrno>
#include <filesystem>
#include <functional>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Vantor {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class SystemFactsTest : public ::testing::Test {
protected:
    void write(const std::string& name, const std::string& text)
    {
        std::filesystem::create_directories(std::filesystem::path(m_folder / name).parent_path());
        writeFile(m_folder / name, text);
    }

    // As the kernel shows one, with a node that is a plain file.
    void addDevice(const std::string& place, const std::string& vendor, const std::string& product,
                   const std::string& number)
    {
        const std::string folder = "sys/" + place + "/";
        write(folder + "idVendor", vendor + "\n");
        write(folder + "idProduct", product + "\n");
        write(folder + "bDeviceClass", "00\n");
        write(folder + "bConfigurationValue", "1\n");
        write(folder + "busnum", "1\n");
        write(folder + "devnum", number + "\n");
        write(folder + "power/control", "auto\n");
        write("sys/" + place + ":1.0/bInterfaceNumber", "00\n");
        write(nodeOf(number), "");
    }

    std::string nodeOf(const std::string& number) const
    {
        return "dev/bus/usb/001/" + std::string(3 - number.size(), '0') + number;
    }

    void addProcess(const std::string& process, const std::string& name, const std::string& openFile)
    {
        write("proc/" + process + "/comm", name + "\n");
        std::filesystem::create_directories(m_folder / ("proc/" + process + "/fd"));
        std::filesystem::create_symlink(openFile, m_folder / ("proc/" + process + "/fd/7"));
    }

    SystemFacts facts() const
    {
        return SystemFacts({m_folder / "sys", m_folder / "dev", m_folder / "proc", m_folder.getPath()});
    }

    DoctorFacts system() const
    {
        DoctorFacts system;
        facts().addSystem(system);
        return system;
    }

    DoctorFacts devices() const
    {
        DoctorFacts devices;
        devices.knownIds = {"dead:beef", "1a2b:beef"};
        facts().addDevices(devices);
        facts().addHolders(devices);
        return devices;
    }

    static std::string placesOf(const std::vector<PanelFacts>& panels)
    {
        std::string places;
        for (const PanelFacts& panel : panels)
            places += panel.place + " ";
        return places;
    }

    // Root may do everything: then it is nobody who looks.
    static bool holdsForNobody(const std::function<bool()>& condition)
    {
        const pid_t child = fork();
        if (child == 0) {
            const bool isNobody = geteuid() != 0 || (setgid(65534) == 0 && setuid(65534) == 0);
            _exit(isNobody && condition() ? 0 : 1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        return status == 0;
    }

    TemporaryFolder m_folder;
};

const std::string unixSockets = "Num       RefCount Protocol Flags    Type St Inode Path\n";

} // namespace

TEST_F(SystemFactsTest, emptySystem_hasNothing)
{
    const DoctorFacts found = system();
    EXPECT_FALSE(found.hasUdevd);
    EXPECT_FALSE(found.rule);
    EXPECT_THAT(found.allGroups, IsEmpty());
    EXPECT_EQ(found.user, geteuid() == 0 ? "root" : "uid " + std::to_string(geteuid()));
    EXPECT_THAT(devices().panels, IsEmpty());
    EXPECT_EQ(devices().otherDevices, 0U);
}

TEST_F(SystemFactsTest, udevd_isThereWhileItsSocketIsOpen)
{
    write("run/udev/control", "");
    write("proc/net/unix", unixSockets + "0: 2 0 10000 5 01 1 " + m_folder.getPath() + "/run/udev/control.old\n");
    EXPECT_FALSE(system().hasUdevd);
    write("proc/net/unix", unixSockets + "0: 2 0 10000 5 01 1 " + m_folder.getPath() + "/run/udev/control\n");
    EXPECT_TRUE(system().hasUdevd);
}

TEST_F(SystemFactsTest, ruleOfTheAdministrator_hidesTheInstalledOne)
{
    write(std::string("lib/udev/rules.d/") + PanelRule::fileName, "installed");
    EXPECT_EQ(system().rule->text, "installed");
    EXPECT_EQ(system().rule->path, "/lib/udev/rules.d/70-morvane-panel.rules");
    write(std::string("usr/local/lib/udev/rules.d/") + PanelRule::fileName, "local");
    EXPECT_EQ(system().rule->text, "local");
    write(std::string("run/udev/rules.d/") + PanelRule::fileName, "for now");
    EXPECT_EQ(system().rule->text, "for now");
    write(std::string("etc/udev/rules.d/") + PanelRule::fileName, "");
    EXPECT_EQ(system().rule->text, "");
    EXPECT_EQ(system().rule->path, "/etc/udev/rules.d/70-morvane-panel.rules");
}

TEST_F(SystemFactsTest, ruleThatIsADirectory_canNotBeRead)
{
    write(std::string("lib/udev/rules.d/") + PanelRule::fileName, "installed");
    std::filesystem::create_directories(m_folder / (std::string("etc/udev/rules.d/") + PanelRule::fileName));
    ASSERT_TRUE(system().rule);
    EXPECT_EQ(system().rule->error, EISDIR);
    EXPECT_EQ(system().rule->path, "/etc/udev/rules.d/70-morvane-panel.rules");
    EXPECT_FALSE(system().rule->isMasked);
}

TEST_F(SystemFactsTest, ruleThatThisUserMayNotRead_isNotMissing)
{
    const std::string rule = m_folder / (std::string("etc/udev/rules.d/") + PanelRule::fileName);
    write(std::string("etc/udev/rules.d/") + PanelRule::fileName, "secret");
    std::filesystem::permissions(rule, std::filesystem::perms::none);
    std::filesystem::permissions(m_folder.getPath(), std::filesystem::perms(0755));
    EXPECT_TRUE(holdsForNobody([this] {
        const std::optional<RuleFile> found = system().rule;
        return found && found->error == EACCES && found->text.empty();
    }));
}

TEST_F(SystemFactsTest, ruleThatIsEmptyOrNull_isMasked)
{
    const std::string name = std::string("etc/udev/rules.d/") + PanelRule::fileName;
    write(std::string("lib/udev/rules.d/") + PanelRule::fileName, "installed");
    EXPECT_FALSE(system().rule->isMasked);
    write(name, "");
    EXPECT_TRUE(system().rule->isMasked);
    std::filesystem::remove(m_folder / name);
    std::filesystem::create_symlink("/dev/null", m_folder / name);
    EXPECT_TRUE(system().rule->isMasked);
    EXPECT_EQ(system().rule->path, "/" + name);
    EXPECT_EQ(system().rule->error, 0);
}

TEST_F(SystemFactsTest, panelsThatComeAndGo_areSortedOut)
{
    addDevice("1-1", "dead", "beef", "2");
    addDevice("1-2", "dead", "beef", "3");
    addDevice("1-3", "dead", "beef", "4");
    DoctorFacts found;
    found.knownIds = {"dead:beef"};
    const std::vector<PanelFacts> atStart = facts().listPanels(found.knownIds);
    EXPECT_EQ(atStart.size(), 3U);
    addDevice("1-4", "dead", "beef", "5");
    write("sys/1-3/devnum", "6\n"); // plugged in anew
    facts().addDevices(found);
    std::filesystem::remove_all(m_folder / "sys/1-2");
    facts().sortOut(found, atStart);
    EXPECT_EQ(placesOf(found.panels), "1-1 ");
    EXPECT_EQ(placesOf(found.departed), "1-2 1-3 ");
    EXPECT_EQ(placesOf(found.newcomers), "1-3 1-4 ");
}

TEST_F(SystemFactsTest, userAndGroups_areTheFiles)
{
    write("etc/passwd", "someone:x:" + std::to_string(geteuid() + 1) +
                            ":1::/:/bin/sh\nme:x:" + std::to_string(geteuid()) + ":1::/:/bin/sh\n");
    write("etc/group", "plugdev:x:46:me,someone\nempty:x:47:\n");
    const DoctorFacts found = system();
    EXPECT_EQ(found.user, "me");
    ASSERT_EQ(found.allGroups.size(), 2U);
    EXPECT_EQ(found.allGroups[0].name, "plugdev");
    EXPECT_EQ(found.allGroups[0].number, 46U);
    EXPECT_THAT(found.allGroups[0].members, ElementsAre("me", "someone"));
    EXPECT_THAT(found.allGroups[1].members, IsEmpty());
    EXPECT_EQ(found.isRoot, geteuid() == 0);
    EXPECT_THAT(found.groups, ::testing::Contains(getegid()));
}

TEST_F(SystemFactsTest, devices_areSortedByTheirIds)
{
    addDevice("usb1", "1d6b", "0002", "1");
    write("sys/usb1/bDeviceClass", "09\n");
    addDevice("1-1", "dead", "beef", "2");
    addDevice("1-2", "0c0d", "beef", "3");
    addDevice("1-3", "1a2b", "0001", "4");
    addDevice("1-4", "0c0d", "0001", "5");
    addDevice("1-5.2", "1a2b", "beef", "100");
    const DoctorFacts found = devices();
    ASSERT_EQ(found.panels.size(), 2U);
    EXPECT_EQ(found.panels[0].place, "1-1");
    EXPECT_EQ(found.panels[0].id, "dead:beef");
    EXPECT_EQ(found.panels[1].place, "1-5.2");
    EXPECT_EQ(found.panels[1].node.path, m_folder / nodeOf("100"));
    ASSERT_EQ(found.strangers.size(), 2U);
    EXPECT_EQ(found.strangers[0].id, "0c0d:beef");
    EXPECT_EQ(found.strangers[1].id, "1a2b:0001");
    EXPECT_EQ(found.otherDevices, 1U);
}

TEST_F(SystemFactsTest, panel_isExamined)
{
    addDevice("1-1", "dead", "beef", "2");
    std::filesystem::create_symlink("../../../bus/usb/drivers/usbfs", m_folder / "sys/1-1:1.0/driver");
    std::filesystem::permissions(m_folder / nodeOf("2"), std::filesystem::perms(0640));
    write("etc/passwd", "me:x:" + std::to_string(geteuid()) + ":1::/:/bin/sh\n");
    write("etc/group", "mine:x:" + std::to_string(getegid()) + ":\n");
    const DoctorFacts found = devices();
    ASSERT_EQ(found.panels.size(), 1U);
    const PanelFacts& panel = found.panels.front();
    EXPECT_EQ(panel.node.error, 0);
    EXPECT_EQ(panel.node.access, "-rw-r----- me mine");
    EXPECT_EQ(panel.interface, "1-1:1.0");
    EXPECT_EQ(panel.driver, "usbfs");
    EXPECT_EQ(panel.powerControl, "auto");
    EXPECT_FALSE(panel.capabilities) << "of a plain file";
    EXPECT_EQ(panel.state, PanelFacts::State::NotListed);
}

TEST_F(SystemFactsTest, nodeThatIsMissing_saysSo)
{
    addDevice("1-1", "dead", "beef", "2");
    std::filesystem::remove(m_folder / nodeOf("2"));
    EXPECT_EQ(devices().panels.front().node.error, ENOENT);
    EXPECT_EQ(devices().panels.front().node.access, "");
}

TEST_F(SystemFactsTest, holders_haveTheNodeOpenByAnyName)
{
    addDevice("1-1", "dead", "beef", "2");
    std::filesystem::create_symlink(m_folder / nodeOf("2"), m_folder / "dev/another name");
    addProcess("123", "product", m_folder / "dev/another name");
    addProcess("124", "bystander", "/dev/null");
    addProcess("self", "no number", m_folder / nodeOf("2"));
    addProcess(std::to_string(getpid()), "this one", m_folder / nodeOf("2"));
    write("etc/passwd", "me:x:" + std::to_string(geteuid()) + ":1::/:/bin/sh\n");
    const DoctorFacts found = devices();
    ASSERT_EQ(found.panels.front().holders.size(), 1U);
    EXPECT_EQ(found.panels.front().holders[0].process, 123);
    EXPECT_EQ(found.panels.front().holders[0].name, "product");
    EXPECT_EQ(found.panels.front().holders[0].user, "me");
    EXPECT_FALSE(found.hasHiddenProcesses);
}

TEST_F(SystemFactsTest, nodeThatIsGone_isHeldByNobody)
{
    addDevice("1-1", "dead", "beef", "2");
    std::filesystem::remove(m_folder / nodeOf("2"));
    addProcess("123", "product", m_folder / nodeOf("2"));
    EXPECT_THAT(devices().panels.front().holders, IsEmpty());
}

TEST_F(SystemFactsTest, filesOfAnotherUsersProcess_areHidden)
{
    addDevice("1-1", "dead", "beef", "2");
    addProcess("123", "product", m_folder / nodeOf("2"));
    std::filesystem::permissions(m_folder / "proc/123/fd", std::filesystem::perms::none);
    std::filesystem::permissions(m_folder.getPath(), std::filesystem::perms(0755));
    EXPECT_TRUE(holdsForNobody([this] {
        const DoctorFacts found = devices();
        return found.hasHiddenProcesses && found.panels.size() == 1 && found.panels[0].holders.empty();
    }));
}

TEST_F(SystemFactsTest, panelsimThatThisProcessRunsIn_isTheSimulator)
{
    const std::string own = std::to_string(getpid());
    addDevice("1-1", "dead", "beef", "2");
    for (const std::string process : {"123", "124", "125"})
        addProcess(process, process == "125" ? "product" : "panelsim", m_folder / nodeOf("2"));
    write("proc/" + own + "/status", "Name:\tpanelctl\nPPid:\t125\n");
    write("proc/125/status", "Name:\tproduct\nPPid:\t123\n");
    write("proc/123/status", "Name:\tpanelsim\nPPid:\t1\n");
    const std::vector<NodeHolder> holders = devices().panels.front().holders;
    ASSERT_EQ(holders.size(), 3U);
    EXPECT_TRUE(holders[0].isSimulator);
    EXPECT_FALSE(holders[1].isSimulator) << "somebody else's";
    EXPECT_FALSE(holders[2].isSimulator) << "a program that has started this one";
}

} // namespace Vantor
