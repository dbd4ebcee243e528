#include "simulator/usbip/VhciPorts.h"
#include "tests/support/TemporaryFolder.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

namespace Vantor {

// Root may write any file; nobody may not.
class AsNobody {
public:
    AsNobody() { change(65534); }
    ~AsNobody() { change(0); }
    AsNobody(const AsNobody&) = delete;
    AsNobody& operator=(const AsNobody&) = delete;

private:
    void change(uid_t user) const
    {
        if (m_wasRoot) {
            EXPECT_EQ(seteuid(user), 0);
        }
    }

    const bool m_wasRoot = getuid() == 0;
};

// A folder that looks like the one of vhci-hcd. What is written to its "attach" can be
// read there.
class VhciPortsTest : public testing::Test {
protected:
    std::string path(const std::string& name) const { return m_folder / name; }

    void write(const std::string& name, const std::string& content) const { writeFile(path(name), content); }

    // The lines that a kernel shows: two ports of each speed.
    void writeStatus(const std::string& name, const std::string& first, const std::string& second) const
    {
        write(name, "hub port sta spd dev      sockfd local_busid\n" + first + "\n" + second +
                        "\nss  0002 004 000 00000000 000000 0-0\nss  0003 004 000 00000000 000000 0-0\n");
        write("attach", "");
    }

    std::string attached() const { return contentOf(path("attach")); }

    std::string errorOfAttach(std::optional<unsigned int> preferred = std::nullopt) const
    {
        try {
            VhciPorts(m_folder.getPath()).attach(7, preferred);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "no error";
    }

    const std::string freeAt0 = "hs  0000 004 000 00000000 000000 0-0";
    const std::string usedAt0 = "hs  0000 006 003 00010002 000005 1-1";
    const std::string freeAt1 = "hs  0001 004 000 00000000 000000 0-0";
    const std::string usedAt1 = "hs  0001 006 003 00010002 000006 1-2";
    const TemporaryFolder m_folder;
};

TEST_F(VhciPortsTest, attach_takesTheLowestFreeHighSpeedPort)
{
    writeStatus("status", freeAt0, freeAt1);
    EXPECT_EQ(VhciPorts(m_folder.getPath()).attach(7, std::nullopt), 0U);
    EXPECT_EQ(attached(), "0 7 65538 3");
    writeStatus("status", usedAt0, freeAt1);
    EXPECT_EQ(VhciPorts(m_folder.getPath()).attach(12, std::nullopt), 1U);
    EXPECT_EQ(attached(), "1 12 65538 3");
}

TEST_F(VhciPortsTest, preferredPort_isTakenWhenItIsFree)
{
    writeStatus("status", freeAt0, freeAt1);
    EXPECT_EQ(VhciPorts(m_folder.getPath()).attach(7, 1), 1U);
    EXPECT_EQ(attached(), "1 7 65538 3");
    writeStatus("status", freeAt0, usedAt1);
    EXPECT_EQ(VhciPorts(m_folder.getPath()).attach(7, 1), 0U);
    EXPECT_EQ(VhciPorts(m_folder.getPath()).attach(7, 99), 0U);
}

TEST_F(VhciPortsTest, severalControllers_portsAreNumberedThrough)
{
    writeStatus("status", usedAt0, usedAt1);
    writeStatus("status.1", "hs  0008 005 000 00000000 000000 0-0", "hs  0009 004 000 00000000 000000 0-0");
    writeStatus("status.3", "hs  0024 004 000 00000000 000000 0-0", "hs  0025 004 000 00000000 000000 0-0");
    EXPECT_EQ(VhciPorts(m_folder.getPath()).attach(7, std::nullopt), 9U);
    EXPECT_EQ(attached(), "9 7 65538 3");
}

TEST_F(VhciPortsTest, noModule_saysWhichToLoad)
{
    EXPECT_EQ(errorOfAttach(), "this kernel has no virtual host controller: modprobe vhci-hcd (found none at " +
                                   m_folder.getPath() + ")");
}

TEST_F(VhciPortsTest, noFreePort_isSaid)
{
    writeStatus("status", usedAt0, usedAt1);
    EXPECT_EQ(errorOfAttach(),
              "no free port: all 2 high-speed ports of the kernel's virtual host controllers are taken");
    EXPECT_EQ(attached(), "");
}

TEST_F(VhciPortsTest, linesOfAnotherForm_areNoPorts)
{
    write("status", "hs\nhs  0000\nhs  zero 004 000 00000000 000000 0-0\n\nss  0001 004 000 00000000 000000 0-0\n");
    EXPECT_NE(errorOfAttach().find("modprobe vhci-hcd"), std::string::npos) << errorOfAttach();
}

TEST_F(VhciPortsTest, attachNotWritable_isAMatterOfRights)
{
    writeStatus("status", freeAt0, freeAt1);
    std::filesystem::permissions(m_folder.getPath(), std::filesystem::perms(0755));
    std::filesystem::permissions(path("attach"), std::filesystem::perms::none);
    std::string error;
    {
        const AsNobody nobody;
        error = errorOfAttach();
    }
    EXPECT_EQ(error, "only root may attach panels to the kernel's USB bus (" + path("attach") + ": Permission denied)");
}

TEST_F(VhciPortsTest, attachMissing_isNoMatterOfRights)
{
    writeStatus("status", freeAt0, freeAt1);
    std::filesystem::remove(path("attach"));
    EXPECT_EQ(errorOfAttach(),
              "cannot attach to the kernel's USB bus: " + path("attach") + ": No such file or directory");
}

// A full device stands for a kernel that refuses.
TEST_F(VhciPortsTest, refusal_isSaidWithItsReason)
{
    writeStatus("status", freeAt0, freeAt1);
    std::filesystem::remove(path("attach"));
    std::filesystem::create_symlink("/dev/full", path("attach"));
    EXPECT_EQ(errorOfAttach(), "the kernel refuses a panel at vhci port 0: No space left on device");
}

TEST_F(VhciPortsTest, awaitFree_returnsAtOnceForAFreeOrUnknownPort)
{
    writeStatus("status", freeAt0, usedAt1);
    const auto begin = std::chrono::steady_clock::now();
    VhciPorts ports(m_folder.getPath());
    ports.awaitFree(0);
    ports.awaitFree(99);
    std::filesystem::remove(path("status")); // the module is gone
    ports.awaitFree(0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(500));
}

TEST_F(VhciPortsTest, findDevice_knowsWhatTheKernelCallsIt)
{
    writeStatus("status", usedAt0, "hs  0001 005 000 00000000 000000 0-0");
    VhciPorts ports(m_folder.getPath());
    EXPECT_EQ(ports.findDevice(0), "1-1");
    EXPECT_EQ(ports.findDevice(1), "");
    EXPECT_EQ(ports.findDevice(99), "");
}

} // namespace Vantor
