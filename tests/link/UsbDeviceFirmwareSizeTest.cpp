// Image files larger than the process, or an image's 32-bit size, can hold.
#include "tests/support/DeviceRig.h"

#include <filesystem>
#include <fstream>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor::Test {

namespace {

// Takes no room on the disk: nothing is written.
class HollowFile {
public:
    explicit HollowFile(std::uintmax_t size)
        : m_path(std::filesystem::path(testing::TempDir()) / ("hollow" + std::to_string(getpid())))
    {
        std::ofstream(m_path).close();
        std::filesystem::resize_file(m_path, size);
    }
    ~HollowFile() { std::filesystem::remove(m_path); }
    HollowFile(const HollowFile&) = delete;
    HollowFile& operator=(const HollowFile&) = delete;

    std::string path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

void expectNoImage(std::uintmax_t size)
{
    const HollowFile file(size);
    DeviceRig rig;
    rig.open();
    const std::string line = "[libusb] > Error opening file=" + file.path() + "\n";
    EXPECT_EQ(rig.logged(2, [&] { rig.device->startFirmwareUpgrade(file.path(), file.path(), nullptr); }), line + line);
}

} // namespace

TEST(UsbDevice, firmwareFileOf4GiB_isAnUnreadableFile)
{
    expectNoImage(0x1'0000'0000);
}

TEST(UsbDevice, firmwareFileThatA32BitProcessCannotHold_isAnUnreadableFile)
{
    if (sizeof(void*) == 4)
        expectNoImage(0x8000'0000);
}

} // namespace Vantor::Test
