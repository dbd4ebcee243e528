// What only a process of 32 bits meets: an image file larger than it can hold.
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

} // namespace

TEST(UsbDevice, firmwareFileBeyondAProcessOf32Bits_isAnUnreadableFile)
{
    const HollowFile file(0x8000'0000);
    DeviceRig rig;
    rig.open();
    const std::string line = "[libusb] > Error opening file=" + file.path() + "\n";
    EXPECT_EQ(rig.logged(2, [&] { rig.device->startFirmwareUpgrade(file.path(), file.path(), nullptr); }), line + line);
}

} // namespace Vantor::Test
