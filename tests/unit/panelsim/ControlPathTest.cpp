#include "simulator/panelsim/ControlPath.h"

#include "simulator/panelsim/ControlSocket.h"
#include "tests/support/TemporaryFolder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace Vantor {

class ControlPathTest : public testing::Test {
protected:
    static std::string refusal(const std::string& folder)
    {
        try {
            ControlPath::make(folder);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "no refusal";
    }

    // The number of a process that is no more.
    static pid_t goneProcess()
    {
        const pid_t child = fork();
        if (child == 0)
            _exit(0);
        waitpid(child, nullptr, 0);
        return child;
    }

    // A socket that nobody listens at.
    void leaveSocket(const std::string& path) const
    {
        const std::string made = m_folder / "made";
        const ControlSocket socket(made, [](const std::string&) { return std::string(); });
        std::filesystem::create_hard_link(made, path);
    }

    const TemporaryFolder m_folder;
    const std::string m_sockets = m_folder / "sockets";
};

TEST_F(ControlPathTest, make_isANameOfTheProcessInAFolderOfItsUser)
{
    EXPECT_EQ(ControlPath::make(m_sockets), m_sockets + "/" + std::to_string(getpid()) + ".sock");
    struct stat status = {};
    ASSERT_EQ(lstat(m_sockets.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFDIR | 0700));
    EXPECT_EQ(ControlPath::make(m_sockets), m_sockets + "/" + std::to_string(getpid()) + ".sock"); // once more
}

// Somebody else may have made it, under a name that can be foreseen.
TEST_F(ControlPathTest, folderThatOthersMayEnter_isRefused)
{
    std::filesystem::create_directory(m_sockets);
    chmod(m_sockets.c_str(), 0710);
    EXPECT_EQ(refusal(m_sockets), "'" + m_sockets + "' is not a folder of this user alone");
    EXPECT_TRUE(ControlPath::find(m_sockets).empty());
    chmod(m_sockets.c_str(), 0700);
    const std::string link = m_folder / "link";
    std::filesystem::create_symlink(m_sockets, link);
    EXPECT_EQ(refusal(link), "'" + link + "' is not a folder of this user alone");
    EXPECT_EQ(refusal(m_folder / "none/sockets"),
              "cannot make '" + (m_folder / "none/sockets") + "': No such file or directory");
}

TEST_F(ControlPathTest, find_isWhoListens)
{
    EXPECT_TRUE(ControlPath::find(m_sockets).empty());
    const std::string path = ControlPath::make(m_sockets);
    EXPECT_TRUE(ControlPath::find(m_sockets).empty());
    const ControlSocket socket(path, [](const std::string&) { return std::string(); });
    std::ofstream(m_sockets + "/notes") << "somebody's";
    std::ofstream(m_sockets + "/1.txt") << "somebody's";
    const auto running = ControlPath::find(m_sockets);
    ASSERT_EQ(running.size(), 1U);
    EXPECT_EQ(running[0].path, path);
    EXPECT_EQ(running[0].process, getpid());
    EXPECT_NE(running[0].command.find("panelsimFilesTests"), std::string::npos) << running[0].command;
}

TEST_F(ControlPathTest, socketsOfTheDead_areRemoved)
{
    ControlPath::make(m_sockets);
    const std::string gone = m_sockets + "/" + std::to_string(goneProcess()) + ".sock";
    const std::string beginning = m_sockets + "/" + std::to_string(getppid()) + ".sock"; // it may listen soon
    const std::string named = m_sockets + "/named.sock";
    for (const std::string& path : {gone, beginning, named})
        leaveSocket(path);
    EXPECT_TRUE(ControlPath::find(m_sockets).empty());
    EXPECT_FALSE(std::filesystem::exists(gone));
    EXPECT_TRUE(std::filesystem::exists(beginning));
    EXPECT_TRUE(std::filesystem::exists(named));

    leaveSocket(gone);
    ControlPath::make(m_sockets);
    EXPECT_FALSE(std::filesystem::exists(gone));
}

TEST_F(ControlPathTest, folder_isTheFirstThatThereIs)
{
    const char* const before = std::getenv("XDG_RUNTIME_DIR");
    const std::string kept = before != nullptr ? before : "";
    const std::string user = std::to_string(geteuid());
    const std::string runtime = "/run/user/" + user;
    const std::string otherwise = std::filesystem::exists(runtime) ? runtime + "/panelsim" : "/tmp/panelsim-" + user;
    setenv("XDG_RUNTIME_DIR", m_folder.getPath().c_str(), 1);
    EXPECT_EQ(ControlPath::folder(), m_folder / "panelsim");
    for (const std::string& wrong : {m_folder / "none", std::string(), std::string(".")}) {
        setenv("XDG_RUNTIME_DIR", wrong.c_str(), 1);
        EXPECT_EQ(ControlPath::folder(), otherwise) << wrong;
    }
    unsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ(ControlPath::folder(), otherwise);
    if (before != nullptr)
        setenv("XDG_RUNTIME_DIR", kept.c_str(), 1);
}

} // namespace Vantor
