#include "panelctl/flash/FirmwareImage.h"

#include "panelctl/flash/FirmwareImages.h"
#include "panelctl/terminal/Failure.h"
#include "tests/support/TemporaryFolder.h"

#include <fstream>
#include <functional>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Vantor {

namespace {

// Root reads everything, and becomes nobody for as long as this lives.
class OrdinaryUser {
public:
    OrdinaryUser() : m_user(geteuid()) { EXPECT_TRUE(m_user != 0 || seteuid(65534) == 0); }
    ~OrdinaryUser() { EXPECT_TRUE(m_user != 0 || seteuid(0) == 0); }
    OrdinaryUser(const OrdinaryUser&) = delete;
    OrdinaryUser& operator=(const OrdinaryUser&) = delete;

private:
    uid_t m_user;
};

// The text of the refusal, which must be one for wrong usage.
std::string refusalOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.getExitCode(), 2);
        return failure.what();
    }
    ADD_FAILURE() << "not refused";
    return "";
}

std::string refusalOf(const std::string& path)
{
    return refusalOf([&path] { FirmwareImage("--main", path); });
}

FirmwareImages imagesOf(const TemporaryFile* main, const TemporaryFile* servo)
{
    FirmwareImages images;
    if (main != nullptr)
        images.main = FirmwareImage("--main", main->getPath());
    if (servo != nullptr)
        images.servo = FirmwareImage("--servo", servo->getPath());
    return images;
}

} // namespace

// The check value of this CRC.
TEST(FirmwareImage, file_hasSizeAndCrc)
{
    const TemporaryFile file("123456789");
    const FirmwareImage image = FirmwareImage("--main", file.getPath());
    EXPECT_EQ(image.getSize(), 9U);
    EXPECT_EQ(image.getCrc(), 0xCBF43926U);
    EXPECT_EQ(image.getPath(), file.getPath());
    EXPECT_EQ(image.describe(), "9 bytes in 1 chunk, CRC-32 0xcbf43926, from '" + file.getPath() + "'");
}

TEST(FirmwareImage, lastChunk_mayBeShort)
{
    for (const auto& [size, chunks] : {std::pair(1U, 1U), {4095U, 1U}, {4096U, 1U}, {4097U, 2U}, {12288U, 3U}}) {
        const TemporaryFile file(std::string(size, 'x'));
        EXPECT_EQ(FirmwareImage("--main", file.getPath()).getChunks(), chunks) << size;
    }
}

TEST(FirmwareImage, missingFile_isRefused)
{
    EXPECT_EQ(refusalOf("/nonexistent/main.bin"),
              "--main: '/nonexistent/main.bin' can't be read: No such file or directory.");
}

TEST(FirmwareImage, emptyPath_isRefused)
{
    EXPECT_EQ(refusalOf(""), "--main: the name is empty.");
}

TEST(FirmwareImage, unreadableFile_isRefused)
{
    const TemporaryFile file("x");
    chmod(file.getPath().c_str(), 0);
    const OrdinaryUser user;
    EXPECT_EQ(refusalOf(file.getPath()), "--main: '" + file.getPath() + "' can't be read: Permission denied.");
}

TEST(FirmwareImage, directory_isRefused)
{
    EXPECT_EQ(refusalOf("/tmp"), "--main: '/tmp' is a directory. Name the firmware image itself.");
}

// A pipe that nobody writes to must not hang it.
TEST(FirmwareImage, pipeOrDevice_isRefused)
{
    const TemporaryFolder folder;
    const std::string pipe = folder.getPath() + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& path : {pipe, std::string("/dev/zero")})
        EXPECT_EQ(refusalOf(path), "--main: '" + path +
                                       "' is a pipe or a device: only plain files can be flashed. Copy it to one "
                                       "first.");
}

TEST(FirmwareImage, emptyFile_isRefused)
{
    const TemporaryFile file;
    EXPECT_EQ(refusalOf(file.getPath()), "--main: '" + file.getPath() + "' is empty: there is nothing to write.");
}

TEST(FirmwareImage, moreThan16MiB_isRefused)
{
    const TemporaryFile file;
    ASSERT_EQ(truncate(file.getPath().c_str(), 16 * 1024 * 1024), 0);
    EXPECT_EQ(FirmwareImage("--main", file.getPath()).getSize(), 16U * 1024 * 1024);
    ASSERT_EQ(truncate(file.getPath().c_str(), 16 * 1024 * 1024 + 1), 0);
    EXPECT_EQ(refusalOf(file.getPath()),
              "--main: '" + file.getPath() +
                  "' is larger than 16 MiB: that is no microcontroller's firmware. Is it the right file?");
}

TEST(FirmwareImage, fileThatChanges_isNoticed)
{
    const TemporaryFile file("old");
    const FirmwareImage image = FirmwareImage("--servo", file.getPath());
    image.requireUnchanged();
    std::ofstream(file.getPath()) << "new";
    EXPECT_EQ(refusalOf([&image] { image.requireUnchanged(); }),
              "--servo: '" + file.getPath() + "' has changed since it was checked. Nothing was sent.");
    std::remove(file.getPath().c_str());
    EXPECT_EQ(refusalOf([&image] { image.requireUnchanged(); }),
              "--servo: '" + file.getPath() + "' can't be read: No such file or directory.");
}

TEST(FirmwareImages, both_areLocatedOneAfterTheOther)
{
    const TemporaryFile main(std::string(5000, 'm'));
    const TemporaryFile servo(std::string(100, 's'));
    const FirmwareImages images = imagesOf(&main, &servo);
    EXPECT_EQ(images.getTotal(), 5100U);
    EXPECT_EQ(images.getChunks(), 3U);
    EXPECT_EQ(images.describePosition(0), "0 of 5000 bytes of the main image");
    EXPECT_EQ(images.describePosition(4999), "4999 of 5000 bytes of the main image");
    EXPECT_EQ(images.describePosition(5000), "0 of 100 bytes of the servo image");
    EXPECT_EQ(images.describePosition(5100), "100 of 100 bytes of the servo image");
}

// A panel that confirms too much can drive the library's count past the end.
TEST(FirmwareImages, moreThanAll_isTheEnd)
{
    const TemporaryFile file(std::string(100, 'x'));
    EXPECT_EQ(imagesOf(&file, nullptr).describePosition(4096), "100 of 100 bytes of the main image");
    EXPECT_EQ(imagesOf(&file, &file).describePosition(4294967295U), "100 of 100 bytes of the servo image");
}

TEST(FirmwareImages, servoAlone_beginsWithIt)
{
    const TemporaryFile servo(std::string(256, 's'));
    EXPECT_EQ(imagesOf(nullptr, &servo).describePosition(0), "0 of 256 bytes of the servo image");
}

// 0.1 s, 25 chunks of 0.11 s and 0.59 s are 3.44 s; with one more image of one chunk 0.7 s more.
TEST(FirmwareImages, estimate_countsChunksAndPauses)
{
    const TemporaryFile main(std::string(102400, 'm'));
    const TemporaryFile servo(std::string(4096, 's'));
    EXPECT_EQ(imagesOf(&main, nullptr).estimateTime(), std::chrono::seconds(4));
    EXPECT_EQ(imagesOf(&main, &servo).estimateTime(), std::chrono::seconds(5));
}

} // namespace Vantor
