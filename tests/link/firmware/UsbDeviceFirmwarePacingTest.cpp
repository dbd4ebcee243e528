// When a step is taken, to the nanosecond: 0.3 s fresh, 1.0 after the request, 0.7 after a
// chunk, 0.1 after a reply. At the limit it is.
#include "tests/link/firmware/FirmwareRig.h"

#include <thread>

using namespace std::chrono_literals;

namespace Vantor::Test {

namespace {

const Bytes& image()
{
    return threeChunks();
}

Bytes firstChunk()
{
    return Frame::chunk(mainMcu, 0, 4096, Bytes(4096, 1));
}

Bytes secondChunk()
{
    return Frame::chunk(mainMcu, 0x1000, 4096, Bytes(4096, 2));
}

void wantSecondChunk(FirmwareRig& rig)
{
    rig.want.lastSentOffset = 0x1000;
    rig.wantChunk(mainMcu, 0x1000, 4096);
}

} // namespace

AT_EVERY_LEVEL(UsbDeviceFirmwarePacing);

TEST_P(UsbDeviceFirmwarePacing, firstChunk_goesOutOneSecondAfterTheRequest)
{
    FirmwareRig rig(GetParam(), image(), {});
    rig.startAndExpect();
    rig.pollAfter(1s - 1ns);
    rig.expectNothing();
    rig.pollAfter(1ns);
    rig.want.resends = 1; // a fresh device's first chunk counts as one
    rig.want.retries = 1;
    rig.wantChunk(mainMcu, 0, 4096);
    rig.expectStep({firstChunk()}, {writingMain, rig.resendLine()});
}

TEST_P(UsbDeviceFirmwarePacing, unansweredChunk_isSentAgainAfterSevenTenthsOfASecond)
{
    FirmwareRig rig(GetParam(), image(), {});
    rig.startAndExpect();
    rig.sendFirstMainChunk(firstChunk());
    for (unsigned int i = 2; i <= 3; ++i) {
        rig.pollAfter(700ms - 1ns);
        rig.expectNothing();
        rig.pollAfter(1ns);
        rig.want.resends = i;
        rig.want.retries = i;
        rig.wantChunk(mainMcu, 0, 4096);
        rig.expectStep({firstChunk()}, {writingMain, rig.resendLine()});
    }
}

TEST_P(UsbDeviceFirmwarePacing, replyWithinATenthOfASecond_leavesTheNextChunkToThePoll)
{
    FirmwareRig rig(GetParam(), image(), {});
    rig.startAndExpect();
    rig.sendFirstMainChunk(firstChunk());
    rig.acknowledgeEarly(100ms - 1ns, mainMcu, 0, 4096);
    rig.pollAfter(0s);
    rig.expectNothing();
    rig.pollAfter(1ns);
    wantSecondChunk(rig);
    rig.expectStep({secondChunk()}, {writingMain});
}

TEST_P(UsbDeviceFirmwarePacing, replyAfterATenthOfASecond_sendsTheNextChunkAtOnce)
{
    FirmwareRig rig(GetParam(), image(), {});
    rig.startAndExpect();
    rig.sendFirstMainChunk(firstChunk());
    rig.acknowledgeAndSend(mainMcu, 0, secondChunk());
}

// A reply shortens the wait behind the request, too.
TEST_P(UsbDeviceFirmwarePacing, replyToTheRequest_bringsTheFirstChunkForward)
{
    FirmwareRig rig(GetParam(), image(), {});
    rig.startAndExpect();
    rig.replyAfter(10ms, {FirmwareUpgradeCommand::SendAgain, 0, 0, 0, 0});
    rig.want.timeout = 0.1;
    rig.expectNothing();
    rig.pollAfter(90ms - 1ns);
    rig.expectNothing();
    rig.pollAfter(1ns);
    rig.want.resends = 1;
    rig.want.retries = 1;
    rig.wantChunk(mainMcu, 0, 4096);
    rig.expectStep({firstChunk()}, {writingMain, rig.resendLine()});
}

TEST_P(UsbDeviceFirmwarePacing, clockSetBack_waitsUntilItHasCaughtUp)
{
    FirmwareRig rig(GetParam(), image(), {});
    rig.startAndExpect();
    rig.sendFirstMainChunk(firstChunk());
    VirtualClock::step(-1h);
    rig.pollAfter(10s);
    rig.expectNothing();
    rig.acknowledgeEarly(0s, mainMcu, 0, 4096); // taken note of, and not followed by a chunk
    rig.pollAfter(1h - 10s + 100ms - 1ns);
    rig.expectNothing();
    rig.pollAfter(1ns);
    wantSecondChunk(rig);
    rig.expectStep({secondChunk()}, {writingMain});
}

TEST_P(UsbDeviceFirmwarePacing, clockSetForward_takesTheStepAtOnce)
{
    FirmwareRig rig(GetParam(), image(), {});
    rig.startAndExpect();
    VirtualClock::step(1h);
    rig.pollAfter(0s);
    rig.want.resends = 1;
    rig.want.retries = 1;
    rig.wantChunk(mainMcu, 0, 4096);
    rig.expectStep({firstChunk()}, {writingMain, rig.resendLine()});
}

TEST_P(UsbDeviceFirmwarePacing, pollOfADeadDevice_takesNoStep)
{
    FirmwareRig rig(GetParam(), image(), {});
    rig.startAndExpect();
    LinkRig::setLevel(0);
    rig.device->markDead();
    LinkRig::setLevel(GetParam());
    for (int i = 0; i < 3; ++i) {
        rig.pollAfter(10s);
        rig.expectNothing();
    }
    EXPECT_TRUE(rig.device->isUpdating()) << "there is nothing that ends it";
}

// The worker polls with a lock held that the callback may want. If it waited for the
// callback it would not come back.
TEST_P(UsbDeviceFirmwarePacing, pollDuringAProgressCallback_leavesTheStepToTheNextPass)
{
    FirmwareRig rig(GetParam(), {}, {7});
    bool polled = false;
    rig.device->startFirmwareUpgrade(rig.main.getPath(), rig.servo.getPath(), [&](const UsbDevice::FirmwareProgress&) {
        const FirmwareState before = FirmwareState::of(*rig.device);
        EXPECT_EQ(before.state, FirmwareState::announcing);
        std::thread([&rig] { rig.device->poll(VirtualClock::now()); }).join();
        EXPECT_EQ(FirmwareState::of(*rig.device), before);
        polled = true;
    });
    EXPECT_TRUE(polled);
    rig.want.state = FirmwareState::sendingServo;
    rig.want.servoSize = 1;
    rig.want.servoCrc = Frame::crc32({7});
    rig.want.hasCallback = true;
    rig.wantRequest();
    rig.expectStep({rig.requestFrame()}, {{4, "[libusb] > Read file=" + rig.main.getPath() + " size=0 bytes\n"},
                                          {4, "[libusb] > Read file=" + rig.servo.getPath() + " size=1 bytes\n"}});
}

} // namespace Vantor::Test
