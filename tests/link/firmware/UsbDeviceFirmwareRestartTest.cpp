// Main chunks that nobody answers: counted, and after five resends announced again.
#include "tests/link/firmware/FirmwareRig.h"

using namespace std::chrono_literals;

namespace Vantor::Test {

namespace {

// Acknowledged up to the second chunk of threeChunks(), which has been sent.
void goToSecondChunk(FirmwareRig& rig, const Bytes& frame)
{
    rig.startAndExpect();
    rig.sendFirstMainChunk(Frame::chunk(mainMcu, 0, 4096, Bytes(4096, 1)));
    rig.acknowledgeAndSend(mainMcu, 0, frame);
}

} // namespace

AT_EVERY_LEVEL(UsbDeviceFirmwareRestart);

TEST_P(UsbDeviceFirmwareRestart, fiveUnansweredResends_announceAgainWithTheOffsetUnchanged)
{
    FirmwareRig rig(GetParam(), threeChunks(), {});
    const Bytes frame = Frame::chunk(mainMcu, 0x1000, 4096, Bytes(4096, 2));
    goToSecondChunk(rig, frame);
    for (int i = 0; i < 5; ++i)
        rig.resend(frame);
    EXPECT_EQ(rig.want.retries, 5u);
    rig.pollAfter(700ms - 1ns);
    rig.expectNothing();
    rig.pollAfter(1ns);
    rig.want.retries = 0;
    rig.wantRequest(); // state 2 again, through 1
    rig.expectStep({rig.requestFrame()}, {{2, "[libusb] Re-starting Firmware upgrade. offset 0x1000 uid 260\n"}});
    rig.pollAfter(1s - 1ns);
    rig.expectNothing();
    rig.pollAfter(1ns);
    // It goes on where it stood, which counts as a resend again.
    rig.want.resends = 7;
    rig.want.retries = 1;
    rig.wantChunk(mainMcu, 0x1000, 4096);
    rig.expectStep({frame}, {writingMain, rig.resendLine()});
    rig.acknowledgeAndSend(mainMcu, 0x1000,
                           Frame::chunk(mainMcu, 0x2000, 1808, Frame::over(Bytes(1808, 3), Bytes(4096, 2))));
}

// The first chunk of a fresh device is itself counted, so four resends are enough.
TEST_P(UsbDeviceFirmwareRestart, fourUnansweredResendsOfAFreshDevicesFirstChunk_announceAgain)
{
    FirmwareRig rig(GetParam(), Bytes(9, 1), {});
    rig.startAndExpect();
    const Bytes frame = Frame::chunk(mainMcu, 0, 9, Frame::over(Bytes(9, 1), {}));
    rig.sendFirstMainChunk(frame);
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 4; ++i)
            rig.resend(frame);
        rig.restart();
        rig.sendFirstMainChunk(frame);
        EXPECT_EQ(rig.want.retries, 1u);
    }
}

// A reply at the last moment starts the row again, even one that reports a failure.
TEST_P(UsbDeviceFirmwareRestart, replyAfterFiveResends_preventsTheRestart)
{
    FirmwareRig rig(GetParam(), threeChunks(), {});
    const Bytes frame = Frame::chunk(mainMcu, 0x1000, 4096, Bytes(4096, 2));
    goToSecondChunk(rig, frame);
    for (int i = 0; i < 5; ++i)
        rig.resend(frame);
    rig.replyAfter(700ms, {FirmwareUpgradeCommand::SendAgain, mainMcu, 0x1000, 0, 0});
    rig.want.retries = 1;
    rig.want.resends = 7;
    rig.wantChunk(mainMcu, 0x1000, 4096);
    rig.expectStep({frame}, {writingMain, rig.resendLine()});
}

// The count has eight bits: 256 resends read as none.
TEST_P(UsbDeviceFirmwareRestart, resendCount_wrapsAt256)
{
    FirmwareRig rig(GetParam(), Bytes(9, 1), {});
    rig.startAndExpect();
    const Bytes frame = Frame::chunk(mainMcu, 0, 9, Frame::over(Bytes(9, 1), {}));
    rig.sendFirstMainChunk(frame);
    for (unsigned int resends = 2; resends <= 257; ++resends) {
        rig.replyAfter(100ms, {FirmwareUpgradeCommand::SendAgain, mainMcu, 0, 0, 0});
        rig.want.resends = resends % 256;
        rig.wantChunk(mainMcu, 0, 9);
        rig.expectStep({frame}, {writingMain, rig.resendLine()});
    }
    EXPECT_EQ(rig.want.resends, 1u);
}

// To the second request "written" is no answer: the chunk that nobody acknowledged counts.
TEST_P(UsbDeviceFirmwareRestart, requestAnsweredAsWrittenAfterARestart_skipsTheChunk)
{
    FirmwareRig rig(GetParam(), threeChunks(), {});
    const Bytes frame = Frame::chunk(mainMcu, 0x1000, 4096, Bytes(4096, 2));
    goToSecondChunk(rig, frame);
    for (int i = 0; i < 5; ++i)
        rig.resend(frame);
    rig.restart();
    rig.acknowledgeEarly(10ms, 0, 0, 0);
    EXPECT_EQ(rig.want.mainOffset, 8192u);
}

// A panel that takes everything and says nothing is never given up: a request and five
// chunks take 0.7 x 5 + 1 seconds, for ever.
TEST_P(UsbDeviceFirmwareRestart, silentPanel_isNeverGivenUp)
{
    FirmwareRig rig(GetParam(), Bytes(9, 1), {});
    rig.startAndExpect();
    const Bytes frame = Frame::chunk(mainMcu, 0, 9, Frame::over(Bytes(9, 1), {}));
    for (int round = 0; round < 100; ++round) {
        rig.sendFirstMainChunk(frame);
        for (int i = 0; i < 4; ++i)
            rig.resend(frame);
        rig.restart();
    }
    EXPECT_TRUE(rig.device->isUpdating());
}

} // namespace Vantor::Test
