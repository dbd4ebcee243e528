#include "panel2mqtt/panels/FirmwareFolder.h"

#include "tests/support/TemporaryFolder.h"

#include <filesystem>
#include <string>

#include <sys/stat.h>

#include <gmock/gmock.h>

namespace Vantor {
namespace {

constexpr std::size_t most = 1000;
// Of "abc", as FIPS 180-4 has it.
constexpr const char* sumOfAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

class FirmwareFolderTest : public testing::Test {
protected:
    FirmwareFolderTest()
    {
        std::filesystem::create_directories(m_folder / "shelf/v2");
        writeFile(m_folder / "shelf/abc", std::string("abc"));
        writeFile(m_folder / "shelf/v2/abc", std::string("abc"));
        writeFile(m_folder / "outside", std::string("secret"));
    }

    std::string refuse(const std::string& name, std::size_t bound = most)
    {
        const auto result = m_shelf.fetch(name, bound);
        return std::holds_alternative<std::string>(result) ? std::get<std::string>(result) : "not refused";
    }

    const TemporaryFolder m_folder;
    FirmwareFolder m_shelf{m_folder / "shelf"};
};

TEST_F(FirmwareFolderTest, message_isARegularFileAsLongAsItIsKept)
{
    std::string path;
    {
        const auto image = std::get<ShelfImage>(m_shelf.keep("abc"));
        path = image.path;
        EXPECT_EQ(image.size, 3u);
        EXPECT_EQ(image.sha256, sumOfAbc);
        EXPECT_TRUE(std::filesystem::is_regular_file(path));
        EXPECT_EQ(contentOf(path), "abc");
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(FirmwareFolderTest, file_isCopiedWithItsSum)
{
    for (const char* const name : {"abc", "v2/abc"}) {
        const auto image = std::get<ShelfImage>(m_shelf.fetch(name, 3));
        EXPECT_EQ(image.sha256, sumOfAbc);
        writeFile(m_folder / ("shelf/" + std::string(name)), std::string("another"));
        EXPECT_EQ(contentOf(image.path), "abc");
    }
}

TEST_F(FirmwareFolderTest, linkOnTheWay_isRefused)
{
    std::filesystem::create_symlink(m_folder / "outside", m_folder / "shelf/link");
    std::filesystem::create_directory_symlink(m_folder.getPath(), m_folder / "shelf/up");
    std::filesystem::create_symlink("abc", m_folder / "shelf/inside");
    const char* const why = "there is no such file without a symbolic link on the way";
    EXPECT_EQ(refuse("link"), why);
    EXPECT_EQ(refuse("up/outside"), why);
    EXPECT_EQ(refuse("inside"), why);
}

TEST_F(FirmwareFolderTest, wayOutOfIt_isRefusedHereToo)
{
    EXPECT_EQ(refuse("../outside"), "Invalid argument");
    EXPECT_EQ(refuse("v2/../../outside"), "Invalid argument");
    EXPECT_EQ(refuse(m_folder / "outside"), "Invalid argument");
}

TEST_F(FirmwareFolderTest, folderThatIsALink_isFollowed)
{
    std::filesystem::create_directory_symlink(m_folder / "shelf", m_folder / "current");
    FirmwareFolder shelf(m_folder / "current");
    EXPECT_EQ(std::get<ShelfImage>(shelf.fetch("abc", most)).sha256, sumOfAbc);
}

TEST_F(FirmwareFolderTest, whatIsNoRegularFile_isRefusedWithoutWaiting)
{
    ASSERT_EQ(mkfifo((m_folder / "shelf/pipe").c_str(), 0600), 0);
    EXPECT_EQ(refuse("pipe"), "no regular file");
    EXPECT_EQ(refuse("v2"), "no regular file");
}

TEST_F(FirmwareFolderTest, missingEmptyOrTooLarge_isRefused)
{
    writeFile(m_folder / "shelf/empty", std::string());
    EXPECT_EQ(refuse("nothing"), "No such file or directory");
    EXPECT_EQ(refuse("empty"), "the file is empty");
    EXPECT_EQ(refuse("abc", 2), "the file has more than 2 bytes");
}

TEST_F(FirmwareFolderTest, noFolder_isRefused)
{
    FirmwareFolder shelf("");
    EXPECT_EQ(std::get<std::string>(shelf.fetch("abc", most)), "the gateway's configuration has no firmware.folder");
}

} // namespace
} // namespace Vantor
