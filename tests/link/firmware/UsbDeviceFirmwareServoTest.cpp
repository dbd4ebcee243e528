// The servo image on its way: as the main one, but without any count of resends.
#include "tests/link/firmware/FirmwareRig.h"

using namespace std::chrono_literals;

namespace Vantor::Test {

AT_EVERY_LEVEL(UsbDeviceFirmwareServo);

TEST_P(UsbDeviceFirmwareServo, servoImageAlone_isAnnouncedWithAnEmptyMainImage)
{
    FirmwareRig rig(GetParam(), {}, twoChunks());
    rig.startAndExpect();
    EXPECT_EQ(rig.want.mainCrc, 0u) << "of no bytes";
    rig.pollAfter(1s - 1ns);
    rig.expectNothing();
    rig.pollAfter(1ns);
    rig.wantChunk(servoMcu, 0, 4096);
    rig.expectStep({Frame::chunk(servoMcu, 0, 4096, Bytes(4096, 4))}, {writingServo});

    rig.acknowledgeAndSend(servoMcu, 0, Frame::chunk(servoMcu, 0x1000, 1, Frame::over({5}, Bytes(4096, 4))));

    rig.acknowledgeAfter(100ms, servoMcu, 0x1000, 1);
    rig.want.servoOffset = 4097;
    rig.want.lastAckAddress = 0x1000;
    rig.want.state = FirmwareState::announcing;
    rig.want.address = 4097;
    rig.want.length = 0;
    rig.wantProgress();
    rig.expectStep({}, {rig.successLine(servoMcu, 0x1000, 1),
                        writingServo,
                        {4, "[libusb] Written total of 4097 bytes to Servo F1 MCU\n"}});
}

TEST_P(UsbDeviceFirmwareServo, servoImageBehindAMainImage_isNotAnnouncedAgain)
{
    FirmwareRig rig(GetParam(), Bytes(9, 1), {7});
    rig.startAndExpect();
    rig.sendFirstMainChunk(Frame::chunk(mainMcu, 0, 9, Frame::over(Bytes(9, 1), {})));
    rig.acknowledgeLast(mainMcu, 0);
    rig.pollAfter(600ms - 1ns);
    rig.expectNothing();
    rig.pollAfter(1ns);
    rig.want.state = FirmwareState::sendingServo;
    rig.expectNothing();
    rig.pollAfter(0s);
    rig.wantChunk(servoMcu, 0, 1);
    rig.expectStep({Frame::chunk(servoMcu, 0, 1, Frame::over({7}, Bytes(9, 1)))}, {writingServo});

    // Its address 0 comes after the main image's 0, which never is a duplicate.
    rig.acknowledgeLast(servoMcu, 0);
}

TEST_P(UsbDeviceFirmwareServo, servoImageAroundTheChunkSize_endsWhereItEnds)
{
    for (const std::uint32_t size : {1u, 4095u, 4096u, 8192u}) {
        SCOPED_TRACE(size);
        FirmwareRig rig(GetParam(), {}, Bytes(size, 9));
        rig.startAndExpect();
        Bytes data(4096, 0);
        const std::uint32_t length = std::min(size, 4096u);
        data = Frame::over(Bytes(length, 9), data);
        rig.sendFirstServoChunk(Frame::chunk(servoMcu, 0, length, data));
        std::uint32_t address = 0;
        for (std::uint32_t next = length; next < size; next += 4096) {
            rig.acknowledgeAndSend(servoMcu, address, Frame::chunk(servoMcu, next, 4096, data));
            address = next;
        }
        rig.acknowledgeLast(servoMcu, address);
        EXPECT_EQ(rig.want.servoOffset, size);
    }
}

// Without limit and without a count, at offset 0 too, where m_lastSentOffset agrees.
TEST_P(UsbDeviceFirmwareServo, unansweredServoChunk_isSentAgainAndNeverCounted)
{
    FirmwareRig rig(GetParam(), {}, twoChunks());
    rig.startAndExpect();
    const Bytes frame = Frame::chunk(servoMcu, 0, 4096, Bytes(4096, 4));
    rig.sendFirstServoChunk(frame);
    for (int i = 0; i < 20; ++i) {
        rig.pollAfter(700ms - 1ns);
        rig.expectNothing();
        rig.pollAfter(1ns);
        rig.wantChunk(servoMcu, 0, 4096);
        rig.expectStep({frame}, {writingServo});
    }
}

TEST_P(UsbDeviceFirmwareServo, servoOffsetPastTheEnd_isAFinishedImage)
{
    FirmwareRig rig(GetParam(), {}, {7, 8});
    rig.startAndExpect();
    rig.sendFirstServoChunk(Frame::chunk(servoMcu, 0, 2, Frame::over({7, 8}, {})));
    rig.acknowledgeEarly(10ms, servoMcu, 0, 2);
    rig.acknowledgeEarly(10ms, servoMcu, 0, 2);
    rig.pollAfter(80ms);
    rig.want.state = FirmwareState::announcing;
    rig.want.timeout = 0.7;
    rig.want.address = 4;
    rig.want.length = 0;
    rig.expectStep({}, {writingServo, {4, "[libusb] Written total of 4 bytes to Servo F1 MCU\n"}});
}

} // namespace Vantor::Test
