// The main image on its way: chunk by chunk, with all that the device keeps.
#include "tests/link/firmware/FirmwareRig.h"

using namespace std::chrono_literals;

namespace Vantor::Test {

AT_EVERY_LEVEL(UsbDeviceFirmwareMain);

TEST_P(UsbDeviceFirmwareMain, mainImageOf10000Bytes_goesOutInThreeChunks)
{
    FirmwareRig rig(GetParam(), threeChunks(), {});
    rig.startAndExpect();
    rig.sendFirstMainChunk(Frame::chunk(mainMcu, 0, 4096, Bytes(4096, 1)));

    rig.acknowledgeAfter(100ms, mainMcu, 0, 4096);
    rig.want.mainOffset = 4096;
    rig.want.retries = 0;
    rig.want.lastSentOffset = 0x1000;
    rig.wantChunk(mainMcu, 0x1000, 4096);
    rig.wantProgress();
    rig.expectStep({Frame::chunk(mainMcu, 0x1000, 4096, Bytes(4096, 2))},
                   {rig.successLine(mainMcu, 0, 4096), writingMain});

    rig.acknowledgeAfter(100ms, mainMcu, 0x1000, 4096);
    rig.want.mainOffset = 8192;
    rig.want.lastAckAddress = 0x1000;
    rig.want.lastSentOffset = 0x2000;
    rig.wantChunk(mainMcu, 0x2000, 1808);
    rig.wantProgress();
    // Behind its end stands what was there before.
    rig.expectStep({Frame::chunk(mainMcu, 0x2000, 1808, Frame::over(Bytes(1808, 3), Bytes(4096, 2)))},
                   {rig.successLine(mainMcu, 0x1000, 4096), writingMain});

    rig.acknowledgeAfter(100ms, mainMcu, 0x2000, 1808);
    rig.want.mainOffset = 10000;
    rig.want.lastAckAddress = 0x2000;
    rig.want.state = FirmwareState::announcing;
    rig.want.address = 10000;
    rig.want.length = 0;
    rig.wantProgress();
    rig.expectStep({}, {rig.successLine(mainMcu, 0x2000, 1808),
                        writingMain,
                        {4, "[libusb] Written total of 10000 bytes to Main MCU\n"}});
}

// The bytes of a chunk, header and checksum included, without the helpers of the rig:
// 01 + 10 (of the length 1000) + 4,096 ones = 1011; for the last one
// 01 + 20 (address 2000) + 07 + 10 (length 0710) + 1,808 threes + 2,288 twos = 2748.
TEST_P(UsbDeviceFirmwareMain, chunks_areTheseBytes)
{
    FirmwareRig rig(GetParam(), threeChunks(), {});
    rig.startAndExpect();
    Bytes first = {0x18, 0x10, 1, 0, 0, 0, 0, 0, 0x2C, 0x0D, 0x10, 1, 0, 0, 0, 0, 0x00, 0x10, 0, 0};
    first.insert(first.end(), 4096, 1);
    first.insert(first.end(), {0x11, 0x10, 0, 0});
    rig.sendFirstMainChunk(first);
    LinkRig::setLevel(0);
    rig.acknowledgeAfter(100ms, mainMcu, 0, 4096);
    rig.acknowledgeAfter(100ms, mainMcu, 0x1000, 4096);
    LinkRig::setLevel(GetParam());
    rig.want.retries = 0;
    rig.want.mainOffset = 4096;
    rig.wantProgress();
    rig.want.mainOffset = 8192;
    rig.wantProgress();
    rig.want.lastAckAddress = 0x1000;
    rig.want.lastSentOffset = 0x2000;
    rig.wantChunk(mainMcu, 0x2000, 1808);
    Bytes last = {0x18, 0x10, 1, 0, 0, 0, 0, 0, 0x2C, 0x0D, 0x10, 1, 0x00, 0x20, 0, 0, 0x10, 0x07, 0, 0};
    last.insert(last.end(), 1808, 3);
    last.insert(last.end(), 2288, 2);
    last.insert(last.end(), {0x48, 0x27, 0, 0});
    Bytes second = {0x18, 0x10, 1, 0, 0, 0, 0, 0, 0x2C, 0x0D, 0x10, 1, 0x00, 0x10, 0, 0, 0x00, 0x10, 0, 0};
    second.insert(second.end(), 4096, 2);
    second.insert(second.end(), {0x21, 0x20, 0, 0}); // 01 + 10 + 10 + 2000
    rig.expectStep({second, last}, {});
}

// The offset moves by the chunk that the host built, not by what the panel says.
TEST_P(UsbDeviceFirmwareMain, replyWithAnotherLength_countsTheHostsOwn)
{
    FirmwareRig rig(GetParam(), Bytes(9, 1), {});
    rig.startAndExpect();
    rig.sendFirstMainChunk(Frame::chunk(mainMcu, 0, 9, Frame::over(Bytes(9, 1), {})));
    rig.acknowledgeEarly(50ms, servoMcu, 0, 5); // the board is not looked at either
    EXPECT_EQ(rig.want.mainOffset, 9u);
}

namespace {

// Walks through a main image of constant bytes and looks at every step.
void walkMain(int level, std::uint32_t size)
{
    FirmwareRig rig(level, Bytes(size, 9), {});
    rig.startAndExpect();
    Bytes data(4096, 0);
    const auto frame = [&](std::uint32_t address, std::uint32_t length) {
        data = Frame::over(Bytes(length, 9), data);
        return Frame::chunk(mainMcu, address, length, data);
    };
    rig.sendFirstMainChunk(frame(0, std::min(size, 4096u)));
    std::uint32_t address = 0;
    for (std::uint32_t next = 4096; next < size; next += 4096) {
        rig.acknowledgeAndSend(mainMcu, address, frame(next, std::min(size - next, 4096u)));
        address = next;
    }
    rig.acknowledgeLast(mainMcu, address);
    EXPECT_EQ(rig.want.mainOffset, size);
}

} // namespace

TEST_P(UsbDeviceFirmwareMain, mainImageAroundTheChunkSize_endsWhereItEnds)
{
    for (const std::uint32_t size : {1u, 4095u, 4096u, 4097u, 8191u, 8192u, 12288u, 65536u + 1u}) {
        SCOPED_TRACE(size);
        walkMain(GetParam(), size);
    }
}

TEST_P(UsbDeviceFirmwareMain, mainImageOfMegabytes_goesOutWhole)
{
    walkMain(GetParam(), (3U << 20) + 1);
}

// Two acknowledgements of chunk 0 beyond the last chunk: the offset passes the end, which
// counts as a finished image. Nothing behind the image is read.
TEST_P(UsbDeviceFirmwareMain, offsetPastTheEnd_isAFinishedImage)
{
    const Bytes image(5000, 1);
    FirmwareRig rig(GetParam(), image, {});
    rig.startAndExpect();
    rig.sendFirstMainChunk(Frame::chunk(mainMcu, 0, 4096, Bytes(4096, 1)));
    rig.acknowledgeAndSend(mainMcu, 0, Frame::chunk(mainMcu, 4096, 904, Bytes(4096, 1)));

    for (const std::uint32_t offset : {5000u, 5904u}) {
        rig.acknowledgeAfter(10ms, mainMcu, 0, 4096);
        rig.want.mainOffset = offset;
        rig.want.timeout = 0.1;
        rig.wantProgress();
        rig.expectStep({}, {rig.successLine(mainMcu, 0, 4096)});
    }
    rig.pollAfter(80ms);
    rig.want.state = FirmwareState::announcing;
    rig.want.timeout = 0.7;
    rig.want.address = 5904;
    rig.want.length = 0;
    rig.expectStep({}, {writingMain, {4, "[libusb] Written total of 5904 bytes to Main MCU\n"}});
    rig.pollAfter(600ms);
    rig.want.state = FirmwareState::finishing;
    rig.expectStep({}, {});
}

TEST_P(UsbDeviceFirmwareMain, chunkAboveThePacketLimit_waitsInTheQueue)
{
    const Bytes image(9, 1);
    FirmwareRig rig(GetParam(), image, {});
    DeviceInformation info{};
    info.maxPacketSize = 4119; // one byte less than a chunk's packet
    rig.device->setDeviceInfo(info);
    rig.startAndExpect();
    rig.pollAfter(1s);
    rig.want.resends = 1;
    rig.want.retries = 1;
    rig.wantChunk(mainMcu, 0, 9);
    rig.expectStep({}, {writingMain, rig.resendLine()});
    EXPECT_TRUE(rig.device->getPacker().hasMoreData());
    info.maxPacketSize = 4120;
    rig.device->setDeviceInfo(info);
    rig.pollAfter(0s);
    rig.expectStep({Frame::chunk(mainMcu, 0, 9, Frame::over(image, {}))}, {});
}

// While a panel takes nothing, each resend waits behind the one before; they all go out.
TEST_P(UsbDeviceFirmwareMain, resendsWhileNothingIsTaken_goOutOneAfterTheOther)
{
    const Bytes image(9, 1);
    FirmwareRig rig(GetParam(), image, {});
    rig.startAndExpect();
    const Bytes frame = Frame::chunk(mainMcu, 0, 9, Frame::over(image, {}));
    for (unsigned int i = 1; i <= 3; ++i) {
        VirtualClock::advance(1s);
        rig.device->poll(VirtualClock::now());
        EXPECT_EQ(rig.sends().size(), i == 1 ? 1u : 0u);
        rig.want.resends = i;
        rig.want.retries = i;
        rig.wantChunk(mainMcu, 0, 9);
    }
    const LogLine resend = rig.resendLine();
    EXPECT_EQ(rig.device->getPacker().hasMoreData(), true);
    rig.expectStep({frame, frame}, {writingMain, resend, writingMain, resend, writingMain, resend});
}

} // namespace Vantor::Test
