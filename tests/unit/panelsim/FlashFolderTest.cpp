#include "simulator/panelsim/FlashFolder.h"
#include "tests/support/Bytes.h"
#include "tests/support/TemporaryFolder.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace Vantor {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FlashFolderTest : public testing::Test {
protected:
    static BootLoader::Image image(BootLoader::State state, Bytes bytes)
    {
        BootLoader::Image result;
        result.state = state;
        result.bytes = std::move(bytes);
        return result;
    }

    void write(const std::string& name, const std::string& content) const { writeFile(m_folder / name, content); }

    std::string contentOf(const std::string& name) const { return Vantor::contentOf(m_folder / name); }

    std::set<std::string> files() const
    {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_path))
            names.insert(entry.path().filename());
        return names;
    }

    static std::string errorOf(const std::function<void()>& action)
    {
        try {
            action();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "nothing is wrong";
    }

    const TemporaryFolder m_folder;
    const std::string m_path = m_folder.getPath();
    BootLoader::Options m_options;
};

TEST_F(FlashFolderTest, missingFolder_isMade)
{
    const FlashFolder folder(m_path + "/a/b");
    EXPECT_TRUE(std::filesystem::is_directory(m_path + "/a/b"));
    EXPECT_THAT(folder.load(0, m_options).main.bytes, IsEmpty());
}

TEST_F(FlashFolderTest, folderThatCannotBe_throws)
{
    write("file", "");
    EXPECT_EQ(errorOf([this] { FlashFolder(m_path + "/file"); }),
              "cannot keep flash in '" + m_path + "/file': Not a directory");
    if (geteuid() == 0)
        return; // who may write anywhere
    std::filesystem::permissions(m_path, std::filesystem::perms::owner_read);
    EXPECT_EQ(errorOf([this] { FlashFolder{m_path}; }), "cannot keep flash in '" + m_path + "': Permission denied");
    std::filesystem::permissions(m_path, std::filesystem::perms::owner_all);
}

TEST_F(FlashFolderTest, saved_isLoadedByPanelAndMcu)
{
    FlashFolder folder(m_path);
    folder.save(0, {image(BootLoader::State::Verified, {1, 0, 255}), image(BootLoader::State::Incomplete, {10, 13})});
    folder.save(12, {image(BootLoader::State::Mismatched, {7}), {}});
    EXPECT_EQ(files(), (std::set<std::string>{"panel0-main.bin", "panel0-servo.bin", "panel12-main.bin"}));
    EXPECT_EQ(contentOf("panel0-main.bin"), std::string("\1\0\xFF", 3));
    EXPECT_THAT(folder.load(0, m_options).main.bytes, ElementsAre(1, 0, 255));
    EXPECT_THAT(folder.load(0, m_options).servo.bytes, ElementsAre(10, 13));
    EXPECT_THAT(folder.load(12, m_options).main.bytes, ElementsAre(7));
    EXPECT_EQ(folder.load(12, m_options).main.state, BootLoader::State::Untouched);
    EXPECT_THAT(folder.load(1, m_options).main.bytes, IsEmpty());
}

TEST_F(FlashFolderTest, untouchedOrEmpty_isNotWritten)
{
    write("panel0-main.bin", "old");
    FlashFolder folder(m_path);
    folder.save(0, {image(BootLoader::State::Untouched, {1}), image(BootLoader::State::Incomplete, {})});
    EXPECT_EQ(files(), (std::set<std::string>{"panel0-main.bin"}));
    EXPECT_EQ(contentOf("panel0-main.bin"), "old");
}

TEST_F(FlashFolderTest, save_replacesTheWholeFile)
{
    write("panel0-main.bin", "long old content");
    std::ifstream reader(m_path + "/panel0-main.bin");
    FlashFolder folder(m_path);
    folder.save(0, {image(BootLoader::State::Verified, {'n', 'e', 'w'}), {}});
    EXPECT_EQ(contentOf("panel0-main.bin"), "new");
    EXPECT_EQ(files().size(), 1u);
    // Who had it open keeps the old one: it was not written over.
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), "long old content");
}

TEST_F(FlashFolderTest, fileOfTheCapacity_isLoadedAndALargerOneThrows)
{
    m_options.mainCapacity = 5;
    m_options.servoCapacity = 3;
    const FlashFolder folder(m_path);
    write("panel0-main.bin", "12345");
    write("panel0-servo.bin", "123");
    EXPECT_EQ(folder.load(0, m_options).main.bytes.size(), 5u);
    EXPECT_EQ(folder.load(0, m_options).servo.bytes.size(), 3u);
    write("panel0-servo.bin", "1234");
    EXPECT_EQ(errorOf([&] { folder.load(0, m_options); }),
              "cannot load flash from '" + m_path + "/panel0-servo.bin': 4 bytes, the flash has 3");
}

TEST_F(FlashFolderTest, whatIsNoFile_throws)
{
    const FlashFolder folder(m_path);
    std::filesystem::create_directory(m_path + "/panel0-main.bin");
    EXPECT_EQ(errorOf([&] { folder.load(0, m_options); }),
              "cannot load flash from '" + m_path + "/panel0-main.bin': not a file");
}

TEST_F(FlashFolderTest, symbolicLink_isNeitherReadNorWritten)
{
    FlashFolder folder(m_path);
    write("victim", "precious");
    std::filesystem::create_symlink("victim", m_path + "/panel0-main.bin");
    EXPECT_EQ(errorOf([&] { folder.load(0, m_options); }),
              "cannot load flash from '" + m_path + "/panel0-main.bin': it is a symbolic link");
    EXPECT_EQ(errorOf([&] {
                  folder.save(0, {image(BootLoader::State::Verified, {1}), {}});
              }),
              "cannot write flash to '" + m_path + "/panel0-main.bin': it is a symbolic link");
    EXPECT_EQ(contentOf("victim"), "precious");
    EXPECT_EQ(files(), (std::set<std::string>{"panel0-main.bin", "victim"}));
}

TEST_F(FlashFolderTest, fileThatCannotBeReplaced_throwsAndLeavesNothing)
{
    FlashFolder folder(m_path);
    std::filesystem::create_directories(m_path + "/panel0-main.bin/full");
    EXPECT_EQ(errorOf([&] {
                  folder.save(0, {image(BootLoader::State::Verified, {1}), {}});
              }),
              "cannot write flash to '" + m_path + "/panel0-main.bin': Is a directory");
    EXPECT_EQ(files(), (std::set<std::string>{"panel0-main.bin"}));
    std::filesystem::remove_all(m_path);
    EXPECT_EQ(errorOf([&] {
                  folder.save(0, {image(BootLoader::State::Verified, {1}), {}});
              }),
              "cannot write flash to '" + m_path + "/panel0-main.bin': No such file or directory");
}

} // namespace
} // namespace Vantor
