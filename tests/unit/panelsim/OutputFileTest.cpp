#include "simulator/panelsim/OutputFile.h"
#include "tests/support/TemporaryFolder.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <stdexcept>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Vantor {
namespace {

class OutputFileTest : public testing::Test {
protected:
    void SetUp() override { writeFile(m_folder / "victim", std::string("precious")); }

    std::string victim() const { return contentOf(m_folder / "victim"); }
    void linkToVictim(const std::string& path) const { std::filesystem::create_symlink("victim", path); }

    std::ptrdiff_t countFiles() const
    {
        return std::distance(std::filesystem::directory_iterator(m_folder.getPath()),
                             std::filesystem::directory_iterator());
    }

    static std::string errorOf(const std::function<void()>& action)
    {
        try {
            action();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return {};
    }

    static void write(const std::string& path)
    {
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(OutputFile::open(path), std::fclose);
        std::fputs("new", file.get());
    }

    const TemporaryFolder m_folder;
    const std::string m_path = m_folder / "file";
};

TEST_F(OutputFileTest, open_makesAFileOrBeginsItAnew)
{
    write(m_path);
    EXPECT_EQ(contentOf(m_path), "new");
    std::ofstream(m_path) << "longer than before";
    write(m_path);
    EXPECT_EQ(contentOf(m_path), "new");
}

TEST_F(OutputFileTest, open_throughALink_isRefused)
{
    linkToVictim(m_path);
    EXPECT_EQ(errorOf([this] { write(m_path); }), "it is a symbolic link");
    std::filesystem::remove(m_path);
    std::filesystem::create_symlink("nowhere", m_path);
    EXPECT_EQ(errorOf([this] { write(m_path); }), "it is a symbolic link");
    EXPECT_EQ(victim(), "precious");
    EXPECT_FALSE(std::filesystem::exists(m_folder / "nowhere"));
}

TEST_F(OutputFileTest, open_withoutItsFolder_saysSo)
{
    EXPECT_EQ(errorOf([this] { write(m_folder / "none/file"); }), "No such file or directory");
}

TEST_F(OutputFileTest, open_ofAPipe_needsItsReader)
{
    ASSERT_EQ(mkfifo(m_path.c_str(), 0600), 0);
    EXPECT_EQ(errorOf([this] { write(m_path); }), "it is a pipe that nobody reads");
    const int reader = ::open(m_path.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    std::FILE* const file = OutputFile::open(m_path);
    EXPECT_EQ(fcntl(fileno(file), F_GETFL) & O_NONBLOCK, 0) << "a full pipe is no failure";
    std::fputs("new", file);
    std::fclose(file);
    char text[4] = {};
    EXPECT_EQ(read(reader, text, 3), 3);
    EXPECT_STREQ(text, "new");
    close(reader);
}

TEST_F(OutputFileTest, replace_isAWholeFileOfTheUsualMode)
{
    const mode_t before = umask(027);
    OutputFile::replace(m_path, {'o', 'l', 'd', '!'});
    OutputFile::replace(m_path, {'n', 'e', 'w'});
    umask(before);
    EXPECT_EQ(contentOf(m_path), "new");
    struct stat status = {};
    ASSERT_EQ(stat(m_path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
    EXPECT_EQ(countFiles(), 2);
}

TEST_F(OutputFileTest, replace_ofALink_isRefused)
{
    linkToVictim(m_path);
    EXPECT_EQ(errorOf([this] { OutputFile::replace(m_path, {1}); }), "it is a symbolic link");
    EXPECT_EQ(victim(), "precious");
    EXPECT_TRUE(std::filesystem::is_symlink(m_path));
    EXPECT_EQ(countFiles(), 2);
}

// Whoever foresees the temporary name, and what lies there, gains nothing.
TEST_F(OutputFileTest, replace_withTheTemporaryNameTaken_takesAnother)
{
    const std::string taken = m_path + "." + std::to_string(getpid()) + "-";
    linkToVictim(taken + "0");
    OutputFile::replace(m_path, {'n', 'e', 'w'});
    EXPECT_EQ(contentOf(m_path), "new");
    for (int i = 1; i < 100; ++i)
        linkToVictim(taken + std::to_string(i));
    EXPECT_EQ(errorOf([this] { OutputFile::replace(m_path, {1}); }), "File exists");
    EXPECT_EQ(contentOf(m_path), "new");
    EXPECT_EQ(victim(), "precious");
}

TEST_F(OutputFileTest, replace_ofAFolder_saysSoAndLeavesNothing)
{
    EXPECT_EQ(errorOf([this] { OutputFile::replace(m_folder.getPath(), {1}); }), "Is a directory");
    EXPECT_EQ(countFiles(), 1);
}

} // namespace
} // namespace Vantor
