// How an upgrade begins: the files, the announcement, the refusal of a second one.
#include "tests/link/firmware/FirmwareRig.h"
#include "tests/support/TemporaryFolder.h"

#include <fstream>

#include <sys/stat.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace Vantor::Test {

namespace {

const Bytes nineDigits = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};

LogLine openingError(const std::string& path)
{
    return {2, "[libusb] > Error opening file=" + path + "\n"};
}

} // namespace

AT_EVERY_LEVEL(UsbDeviceFirmwareStart);

TEST_P(UsbDeviceFirmwareStart, freshDevice_isIdle)
{
    FirmwareRig rig(GetParam(), {}, {});
    rig.expectNothing();
    EXPECT_FALSE(rig.device->isUpdating());
    rig.pollAfter(10s);
    rig.expectNothing();
}

TEST_P(UsbDeviceFirmwareStart, start_announcesBothImages)
{
    FirmwareRig rig(GetParam(), nineDigits, {'a'});
    rig.start();
    EXPECT_TRUE(rig.device->isUpdating());
    rig.want.state = FirmwareState::sendingMain;
    rig.want.mainSize = 9;
    rig.want.servoSize = 1;
    rig.want.mainCrc = 0xCBF43926; // of "123456789", as every table of CRCs has it
    rig.want.servoCrc = 0xE8B7BE43;
    rig.want.hasCallback = true;
    rig.wantRequest();
    rig.wantProgress();
    // The checksum: 9 + 26 + 39 + F4 + CB + 30 + 1 + 43 + BE + B7 + E8 = 4F8.
    const Bytes request = {0x2D, 0, 1, 0, 0, 0, 0, 0,    0x29, 0x22, 0,    0,    0,    0,    0,
                           0,    0, 0, 0, 0, 0, 9, 0,    0,    0,    0x26, 0x39, 0xF4, 0xCB, 0,
                           0x30, 0, 0, 1, 0, 0, 0, 0x43, 0xBE, 0xB7, 0xE8, 0xF8, 0x04, 0,    0};
    rig.expectStep({request}, {{4, "[libusb] > Read file=" + rig.main.getPath() + " size=9 bytes\n"},
                               {4, "[libusb] > Read file=" + rig.servo.getPath() + " size=1 bytes\n"}});
}

// The clock of a system without one begins at its epoch, as does the time of the last send.
TEST_P(UsbDeviceFirmwareStart, startAtTheEpochOfTheClock_waitsThreeTenthsOfASecond)
{
    FirmwareRig rig(GetParam(), {}, {'a'});
    VirtualClock::step(300ms - 1ns - FirmwareRig::now().time_since_epoch());
    rig.start();
    rig.want.state = FirmwareState::announcing;
    rig.want.servoSize = 1;
    rig.want.servoCrc = 0xE8B7BE43;
    rig.want.hasCallback = true;
    rig.wantProgress();
    rig.expectStep({}, {{4, "[libusb] > Read file=" + rig.main.getPath() + " size=0 bytes\n"},
                        {4, "[libusb] > Read file=" + rig.servo.getPath() + " size=1 bytes\n"}});
    rig.pollAfter(1ns);
    rig.want.state = FirmwareState::sendingServo;
    rig.wantRequest();
    rig.expectStep({Frame::request(0, 0, 1, 0xE8B7BE43)}, {});
}

TEST_P(UsbDeviceFirmwareStart, noImages_endsWithoutSending)
{
    FirmwareRig rig(GetParam(), {}, {});
    rig.start();
    rig.want.state = FirmwareState::finishing;
    rig.want.timeout = 0.7;
    rig.want.hasCallback = true;
    rig.wantProgress();
    rig.expectStep({}, {{4, "[libusb] > Read file=" + rig.main.getPath() + " size=0 bytes\n"},
                        {4, "[libusb] > Read file=" + rig.servo.getPath() + " size=0 bytes\n"}});
    EXPECT_TRUE(rig.device->isUpdating());
    rig.pollAfter(0s);
    rig.want.state = FirmwareState::idle;
    rig.expectStep({}, {{3, "[libusb] Firmware Upgrade Finished for uid=260 with 0 resend packets and 0 duplicate "
                            "packets detected during transfer.\n"},
                        {4, "[libusb] Finished!\n"}});
    EXPECT_FALSE(rig.device->isUpdating());
}

// What would block, or is no image, counts as a file that can't be opened; so does one that
// ends before its size, as the kernel's own files do: half an image is none.
TEST_P(UsbDeviceFirmwareStart, pathWithoutAnImage_isAnEmptyImage)
{
    const TemporaryFolder folder;
    const std::string fifo = folder / "fifo";
    const std::string loop = folder / "loop";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    ASSERT_EQ(symlink(loop.c_str(), loop.c_str()), 0);
    for (const std::string& path :
         {std::string("/nonexistent/image"), std::string(), folder.getPath(), fifo, loop, std::string("/dev/zero"),
          std::string("/sys/devices/system/cpu/online"), std::string(5000, 'x')}) {
        FirmwareRig rig(GetParam(), {}, {'a'});
        rig.device->startFirmwareUpgrade(path, rig.servo.getPath(), nullptr);
        rig.want.state = FirmwareState::sendingServo;
        rig.want.servoSize = 1;
        rig.want.servoCrc = 0xE8B7BE43;
        rig.wantRequest();
        rig.expectStep({Frame::request(0, 0, 1, 0xE8B7BE43)},
                       {openingError(path), {4, "[libusb] > Read file=" + rig.servo.getPath() + " size=1 bytes\n"}});
    }
}

TEST_P(UsbDeviceFirmwareStart, fileWithoutPermission_isAnEmptyImage)
{
    FirmwareRig rig(GetParam(), nineDigits, {});
    ASSERT_EQ(chmod(rig.main.getPath().c_str(), 0), 0);
    // Root reads it all the same; then the directory that leads there is a file.
    const std::string path = geteuid() == 0 ? rig.main.getPath() + "/image" : rig.main.getPath();
    rig.device->startFirmwareUpgrade(path, path, nullptr);
    rig.want.state = FirmwareState::finishing;
    rig.want.timeout = 0.7;
    rig.expectStep({}, {openingError(path), openingError(path)});
}

// One byte more than a size can say; it takes no room on the disk.
TEST_P(UsbDeviceFirmwareStart, imageOfFourGigabytes_isAnEmptyImage)
{
    FirmwareRig rig(GetParam(), {}, {});
    ASSERT_TRUE(std::ofstream(rig.main.getPath(), std::ios::binary).seekp(std::streamoff{0xFFFFFFFF}).put(0));
    rig.device->startFirmwareUpgrade(rig.main.getPath(), rig.servo.getPath(), nullptr);
    rig.want.state = FirmwareState::finishing;
    rig.want.timeout = 0.7;
    rig.expectStep(
        {}, {openingError(rig.main.getPath()), {4, "[libusb] > Read file=" + rig.servo.getPath() + " size=0 bytes\n"}});
}

// The images stand in memory: what happens to the files later does not matter.
TEST_P(UsbDeviceFirmwareStart, fileThatChangesAfterTheStart_isSentAsItWas)
{
    FirmwareRig rig(GetParam(), nineDigits, {});
    rig.startAndExpect();
    rig.main.write({'x'});
    rig.sendFirstMainChunk(Frame::chunk(mainMcu, 0, 9, Frame::over(nineDigits, {})));
}

TEST_P(UsbDeviceFirmwareStart, secondStart_isRefusedInEveryStateAndChangesNothing)
{
    bool called = false;
    FirmwareRig rig(GetParam(), nineDigits, {'a'});
    const auto startAgain = [&] {
        rig.device->startFirmwareUpgrade(rig.servo.getPath(), rig.main.getPath(),
                                         [&called](const auto&) { called = true; });
        rig.expectStep({}, {{2, "[libusb] Trying to update during an update!\n"}});
    };
    const auto stepTo = [&rig](std::uint32_t state, const std::vector<LogLine>& lines) {
        rig.pollAfter(700ms);
        rig.want.state = state;
        rig.expectStep({}, lines);
    };
    rig.startAndExpect();
    startAgain(); // 2
    rig.sendFirstMainChunk(Frame::chunk(mainMcu, 0, 9, Frame::over(nineDigits, {})));
    startAgain();

    rig.acknowledgeLast(mainMcu, 0); // the first callback is the one that is called
    startAgain();                    // 1

    stepTo(FirmwareState::sendingServo, {});
    startAgain(); // 3
    rig.sendFirstServoChunk(Frame::chunk(servoMcu, 0, 1, Frame::over({'a'}, nineDigits)));
    rig.acknowledgeLast(servoMcu, 0);
    stepTo(FirmwareState::finishing, {});
    startAgain(); // 4
    EXPECT_FALSE(called);
}

TEST_P(UsbDeviceFirmwareStart, startOnADeadDevice_keepsTheRequestInThePacker)
{
    FirmwareRig rig(GetParam(), nineDigits, {});
    LinkRig::setLevel(0);
    rig.device->markDead();
    LinkRig::setLevel(GetParam());
    rig.start();
    rig.want.state = FirmwareState::sendingMain;
    rig.want.mainSize = 9;
    rig.want.mainCrc = 0xCBF43926;
    rig.want.hasCallback = true;
    rig.wantRequest();
    rig.wantProgress();
    rig.expectStep({}, {{4, "[libusb] > Read file=" + rig.main.getPath() + " size=9 bytes\n"},
                        {4, "[libusb] > Read file=" + rig.servo.getPath() + " size=0 bytes\n"}});
    EXPECT_TRUE(rig.device->getPacker().hasMoreData());
    rig.pollAfter(10s);
    rig.expectNothing();
}

} // namespace Vantor::Test
