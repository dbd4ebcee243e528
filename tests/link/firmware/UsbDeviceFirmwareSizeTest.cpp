// What only a process of 32 bits meets: an image file larger than it can hold.
#include "tests/support/DeviceRig.h"
#include "tests/support/TemporaryFolder.h"

#include <filesystem>
#include <fstream>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor::Test {

TEST(UsbDeviceFirmwareSize, firmwareFileBeyondAProcessOf32Bits_isAnUnreadableFile)
{
    const TemporaryFile file;
    std::filesystem::resize_file(file.getPath(), 0x8000'0000); // takes no room on the disk
    DeviceRig rig;
    rig.open();
    const std::string line = "[libusb] > Error opening file=" + file.getPath() + "\n";
    EXPECT_EQ(rig.logged(2, [&] { rig.device->startFirmwareUpgrade(file.getPath(), file.getPath(), nullptr); }),
              line + line);
}

} // namespace Vantor::Test
