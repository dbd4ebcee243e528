// How an upgrade ends, what stays behind, and the upgrade after it.
#include "tests/link/firmware/FirmwareRig.h"

using namespace std::chrono_literals;

namespace Vantor::Test {

namespace {

// One main chunk of nine bytes, acknowledged after 100 ms; ends in state 1.
void writeMain(FirmwareRig& rig, const Bytes& before)
{
    rig.startAndExpect();
    rig.sendFirstMainChunk(Frame::chunk(mainMcu, 0, 9, Frame::over(rig.mainBytes, before)));
    rig.acknowledgeLast(mainMcu, 0);
}

} // namespace

AT_EVERY_LEVEL(UsbDeviceFirmwareFinish);

// 0, 1, 2, 1, 3, 1, 4, 0, with both images.
TEST_P(UsbDeviceFirmwareFinish, bothImages_takeTheWholeRoad)
{
    FirmwareRig rig(GetParam(), Bytes(9, 1), Bytes(3, 7));
    writeMain(rig, {});
    rig.goOn();
    rig.pollAfter(0s);
    rig.wantChunk(servoMcu, 0, 3);
    rig.expectStep({Frame::chunk(servoMcu, 0, 3, Frame::over(Bytes(3, 7), Bytes(9, 1)))}, {writingServo});
    rig.acknowledgeLast(servoMcu, 0);
    rig.pollAfter(600ms - 1ns);
    rig.expectNothing();
    rig.pollAfter(1ns);
    rig.want.state = FirmwareState::finishing;
    rig.expectNothing();
    EXPECT_TRUE(rig.device->isUpdating());
    rig.pollAfter(0s);
    rig.wantFinished();
    rig.expectStep({}, FirmwareRig::finishedLines(1, 0));
    EXPECT_FALSE(rig.device->isUpdating());
    rig.pollAfter(10s);
    rig.expectNothing();
}

TEST_P(UsbDeviceFirmwareFinish, duplicates_areCountedInTheLastLine)
{
    FirmwareRig rig(GetParam(), Bytes(9, 1), {});
    rig.startAndExpect();
    rig.sendFirstMainChunk(Frame::chunk(mainMcu, 0, 9, Frame::over(Bytes(9, 1), {})));
    rig.acknowledgeEarly(10ms, mainMcu, 0x1000, 9);
    for (unsigned int i = 1; i <= 2; ++i) {
        rig.acknowledgeAfter(0s, mainMcu, 0x1000, 9);
        rig.want.duplicates = i;
        rig.expectStep({}, {{4, "[libusb] Duplicate packet written to STM. Skipping increment. address=0x1000 "
                                "checksum=0xabcd previous address=0x1000 uid=260\n"}});
    }
    rig.pollAfter(700ms);
    rig.want.state = FirmwareState::announcing;
    rig.want.timeout = 0.7;
    rig.want.address = 9;
    rig.want.length = 0;
    rig.expectStep({}, {writingMain, {4, "[libusb] Written total of 9 bytes to Main MCU\n"}});
    rig.pollAfter(0s);
    rig.want.state = FirmwareState::finishing;
    rig.expectNothing();
    rig.pollAfter(0s);
    rig.wantFinished();
    rig.expectStep({}, FirmwareRig::finishedLines(1, 2));
    EXPECT_EQ(rig.device->getStatistics().upgradeResends, 1U);
    EXPECT_EQ(rig.device->getStatistics().upgradeDuplicates, 2U);
}

// The callback is kept, and a reply that comes after the end still calls it: 0 of 0.
TEST_P(UsbDeviceFirmwareFinish, replyAfterTheEnd_reportsNothingOfNothing)
{
    FirmwareRig rig(GetParam(), Bytes(9, 1), {});
    writeMain(rig, {});
    rig.finish(1, 0);
    rig.acknowledgeAfter(10ms, mainMcu, 0, 9);
    rig.wantProgress();
    rig.expectStep({}, {rig.successLine(mainMcu, 0, 9)});
    EXPECT_FALSE(rig.device->isUpdating());
}

// What the first upgrade leaves: the offset last sent, the address last acknowledged, the
// chunk. So the second one's first chunk counts as a resend where the first ended in one.
TEST_P(UsbDeviceFirmwareFinish, secondUpgrade_beginsWithWhatTheFirstLeft)
{
    FirmwareRig rig(GetParam(), Bytes(9, 1), {});
    Bytes before;
    for (int upgrade = 0; upgrade < 3; ++upgrade) {
        writeMain(rig, before);
        EXPECT_EQ(rig.want.resends, 1u) << "both begin and end at offset 0";
        rig.finish(1, 0);
        before = Bytes(9, 1);
        VirtualClock::advance(1s);
    }
}

TEST_P(UsbDeviceFirmwareFinish, secondUpgradeBehindALongOne_countsNoResend)
{
    FirmwareRig rig(GetParam(), Bytes(8192, 1), {});
    for (const unsigned int resends : {1u, 0u}) {
        rig.startAndExpect();
        rig.sendFirstMainChunk(Frame::chunk(mainMcu, 0, 4096, Bytes(4096, 1)));
        EXPECT_EQ(rig.want.resends, resends);
        const std::uint32_t stale = resends == 1 ? 0 : 0x1000; // acknowledged last, in the upgrade before
        EXPECT_EQ(rig.want.lastAckAddress, stale);
        rig.acknowledgeAndSend(mainMcu, 0, Frame::chunk(mainMcu, 0x1000, 4096, Bytes(4096, 1)));
        rig.acknowledgeLast(mainMcu, 0x1000);
        rig.finish(resends, 0);
    }
}

// A reply while the second upgrade is announced finds the length of the first one's last
// step, which is 0: nothing moves. Of an upgrade whose servo image was never begun it is 0, too.
TEST_P(UsbDeviceFirmwareFinish, acknowledgementOfTheRequest_movesNothing)
{
    FirmwareRig rig(GetParam(), Bytes(9, 1), {});
    writeMain(rig, {});
    rig.finish(1, 0);
    VirtualClock::advance(1s);
    rig.startAndExpect();
    rig.acknowledgeAfter(10ms, mainMcu, 0, 9);
    rig.want.timeout = 0.1;
    rig.wantProgress(); // 0 of 9
    rig.expectStep({}, {rig.successLine(mainMcu, 0, 9)});
}

// A late reply of the first upgrade is as good as one to the second one's chunk 0.
TEST_P(UsbDeviceFirmwareFinish, lateReplyOfTheUpgradeBefore_countsForChunkZero)
{
    FirmwareRig rig(GetParam(), Bytes(9, 1), {});
    writeMain(rig, {});
    rig.finish(1, 0);
    VirtualClock::advance(1s);
    rig.startAndExpect();
    rig.sendFirstMainChunk(Frame::chunk(mainMcu, 0, 9, Frame::over(rig.mainBytes, {})));
    rig.acknowledgeEarly(10ms, mainMcu, 0, 9);
    rig.acknowledgeEarly(10ms, mainMcu, 0, 9);
    EXPECT_EQ(rig.want.mainOffset, 18u);
}

TEST_P(UsbDeviceFirmwareFinish, secondStart_replacesTheCallback)
{
    FirmwareRig rig(GetParam(), Bytes(9, 1), {});
    writeMain(rig, {});
    rig.finish(1, 0);
    VirtualClock::advance(1s);
    rig.device->startFirmwareUpgrade(rig.main.getPath(), "/nonexistent", nullptr);
    rig.want.hasCallback = false;
    rig.want.mainSize = 9;
    rig.want.mainCrc = Frame::crc32(rig.mainBytes);
    rig.want.state = FirmwareState::sendingMain;
    rig.wantRequest();
    rig.expectStep({rig.requestFrame()}, {{4, "[libusb] > Read file=" + rig.main.getPath() + " size=9 bytes\n"},
                                          {2, "[libusb] > Error opening file=/nonexistent\n"}});
    rig.acknowledgeAfter(10ms, mainMcu, 0, 9);
    rig.want.timeout = 0.1;
    rig.expectStep({}, {rig.successLine(mainMcu, 0, 9)}); // and nobody is called
}

} // namespace Vantor::Test
