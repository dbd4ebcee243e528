// What each reply does in each state.
#include "tests/link/firmware/FirmwareRig.h"

using namespace std::chrono_literals;

namespace Vantor::Test {

namespace {

const Bytes nine(9, 1);
const Bytes nineOver = Frame::over(nine, {});

struct Reply {
    std::uint8_t code;
    std::vector<LogLine> lines;
    bool steps; // sends again what is due
};

// With board 1, address 0x1000 and length 77.
const std::vector<Reply>& replies()
{
    static const std::vector<Reply> all = {
        {0, {{2, "[libusb] Invalid command 0\n"}}, false},
        {2, {}, true},
        {0xF0, {{2, "[libusb] Failed to write 77 bytes to board 1 address=0x1000 status=0xf0 uid=260\n\n"}}, true},
        {0xF1, {{2, "[libusb] Failed to erase sector on board 1 address=0x1000 status=0xf1 uid=260\n\n"}}, true},
        {0xF2, {}, true},
        {3, {}, false},
        {0xEF, {}, false},
        {0xF3, {}, false},
        {0xFF, {}, false},
    };
    return all;
}

FirmwareUpgradeCommand command(std::uint8_t code)
{
    return {code, mainMcu, 0x1000, 77, 0xABCD};
}

std::vector<LogLine> joined(std::vector<LogLine> first, const std::vector<LogLine>& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// From the first main chunk on, of nine bytes, to state 1.
void finishMain(FirmwareRig& rig)
{
    rig.startAndExpect();
    rig.sendFirstMainChunk(Frame::chunk(mainMcu, 0, 9, nineOver));
    rig.acknowledgeLast(mainMcu, 0);
}

} // namespace

AT_EVERY_LEVEL(UsbDeviceFirmwareReplies);

TEST_P(UsbDeviceFirmwareReplies, replyWithoutAnUpgrade_harmsNothing)
{
    for (const Reply& reply : replies()) {
        SCOPED_TRACE(int{reply.code});
        FirmwareRig rig(GetParam(), nine, {7});
        rig.replyAfter(0s, command(reply.code));
        if (reply.steps)
            rig.want.timeout = 0.7; // the step was taken, and did nothing
        rig.expectStep({}, reply.lines);
        EXPECT_FALSE(rig.device->isUpdating());
    }
    FirmwareRig rig(GetParam(), nine, {7});
    rig.replyAfter(0s, command(1));
    rig.want.timeout = 0.7;
    rig.want.lastAckAddress = 0x1000;
    rig.expectStep({}, {rig.successLine(mainMcu, 0x1000, 77)});
}

// Between the images a reply brings the choice of the next one forward.
TEST_P(UsbDeviceFirmwareReplies, replyBetweenTheImages_choosesTheNextOne)
{
    for (const Reply& reply : replies()) {
        SCOPED_TRACE(int{reply.code});
        FirmwareRig rig(GetParam(), nine, {7});
        finishMain(rig);
        rig.replyAfter(0s, command(reply.code));
        if (reply.steps)
            rig.want.state = FirmwareState::sendingServo;
        rig.expectStep({}, reply.lines);
    }
    FirmwareRig rig(GetParam(), nine, {7});
    finishMain(rig);
    rig.replyAfter(0s, command(1));
    rig.want.state = FirmwareState::sendingServo;
    rig.want.lastAckAddress = 0x1000;
    rig.wantProgress(); // the same sum again
    rig.expectStep({}, {rig.successLine(mainMcu, 0x1000, 77)});
}

TEST_P(UsbDeviceFirmwareReplies, replyToAMainChunk_hasItsConsequence)
{
    for (const Reply& reply : replies()) {
        for (const std::chrono::nanoseconds after : {100ms - 1ns, std::chrono::nanoseconds(100ms)}) {
            SCOPED_TRACE(testing::Message() << int{reply.code} << " after " << after.count() << " ns");
            FirmwareRig rig(GetParam(), threeChunks(), {});
            rig.startAndExpect();
            const Bytes frame = Frame::chunk(mainMcu, 0, 4096, Bytes(4096, 1));
            rig.sendFirstMainChunk(frame);
            rig.replyAfter(after, command(reply.code));
            if (reply.steps) {
                rig.want.timeout = 0.1;
                rig.want.retries = 0;
            }
            const bool sends = reply.steps && after == 100ms;
            if (sends) {
                rig.want.resends = 2;
                rig.want.retries = 1;
                rig.wantChunk(mainMcu, 0, 4096);
                rig.expectStep({frame}, joined(reply.lines, {writingMain, rig.resendLine()}));
            } else {
                rig.expectStep({}, reply.lines);
            }
        }
    }
}

TEST_P(UsbDeviceFirmwareReplies, replyToAServoChunk_hasItsConsequence)
{
    for (const Reply& reply : replies()) {
        SCOPED_TRACE(int{reply.code});
        FirmwareRig rig(GetParam(), {}, twoChunks());
        rig.startAndExpect();
        const Bytes frame = Frame::chunk(servoMcu, 0, 4096, Bytes(4096, 4));
        rig.sendFirstServoChunk(frame);
        rig.replyAfter(100ms, command(reply.code));
        if (reply.steps)
            rig.wantChunk(servoMcu, 0, 4096);
        rig.expectStep(reply.steps ? std::vector<Bytes>{frame} : std::vector<Bytes>{},
                       reply.steps ? joined(reply.lines, {writingServo}) : reply.lines);
    }
}

TEST_P(UsbDeviceFirmwareReplies, replyWhenNothingIsLeft_finishes)
{
    for (const Reply& reply : replies()) {
        SCOPED_TRACE(int{reply.code});
        FirmwareRig rig(GetParam(), nine, {});
        finishMain(rig);
        rig.goOn();
        rig.replyAfter(0s, command(reply.code));
        if (reply.steps)
            rig.wantFinished();
        rig.expectStep({}, reply.steps ? joined(reply.lines, FirmwareRig::finishedLines(1, 0)) : reply.lines);
    }
    FirmwareRig rig(GetParam(), nine, {});
    finishMain(rig);
    rig.goOn();
    rig.replyAfter(0s, command(1));
    rig.wantProgress();
    rig.want.lastAckAddress = 0x1000;
    rig.wantFinished();
    rig.expectStep({}, joined({rig.successLine(mainMcu, 0x1000, 77)}, FirmwareRig::finishedLines(1, 0)));
}

// Neither an unknown code nor the invalid one ends a row of unanswered chunks.
TEST_P(UsbDeviceFirmwareReplies, replyThatIsNoAnswer_leavesTheRetriesAlone)
{
    for (const std::uint8_t code : {std::uint8_t{0}, std::uint8_t{3}, std::uint8_t{0xFF}}) {
        FirmwareRig rig(GetParam(), nine, {});
        rig.startAndExpect();
        rig.sendFirstMainChunk(Frame::chunk(mainMcu, 0, 9, nineOver));
        rig.replyAfter(100ms, command(code));
        EXPECT_EQ(rig.want.retries, 1u);
        rig.expectStep({}, code == 0 ? replies()[0].lines : std::vector<LogLine>{});
    }
}

TEST_P(UsbDeviceFirmwareReplies, repeatedAcknowledgement_isADuplicateAndMovesNothing)
{
    FirmwareRig rig(GetParam(), threeChunks(), {});
    rig.startAndExpect();
    rig.sendFirstMainChunk(Frame::chunk(mainMcu, 0, 4096, Bytes(4096, 1)));
    rig.acknowledgeEarly(50ms, mainMcu, 0x1000, 4096); // whatever address the panel gives
    for (unsigned int i = 1; i <= 2; ++i) {
        rig.acknowledgeAfter(50ms, servoMcu, 0x1000, 9);
        rig.want.duplicates = i; // and no step, although it is time for one
        rig.expectStep({}, {{4, "[libusb] Duplicate packet written to STM. Skipping increment. address=0x1000 "
                                "checksum=0xabcd previous address=0x1000 uid=260\n"}});
    }
}

TEST_P(UsbDeviceFirmwareReplies, duplicate_leavesTheRetriesAlone)
{
    FirmwareRig rig(GetParam(), threeChunks(), {});
    rig.startAndExpect();
    rig.sendFirstMainChunk(Frame::chunk(mainMcu, 0, 4096, Bytes(4096, 1)));
    const Bytes frame = Frame::chunk(mainMcu, 0x1000, 4096, Bytes(4096, 2));
    rig.acknowledgeAndSend(mainMcu, 0x1000, frame);
    rig.resend(frame);
    EXPECT_EQ(rig.want.retries, 1u);
    rig.acknowledgeAfter(200ms, mainMcu, 0x1000, 4096);
    rig.want.duplicates = 1;
    rig.expectStep({}, {{4, "[libusb] Duplicate packet written to STM. Skipping increment. address=0x1000 "
                            "checksum=0xabcd previous address=0x1000 uid=260\n"}});
}

TEST_P(UsbDeviceFirmwareReplies, repeatedAcknowledgementOfAddressZero_isNoDuplicate)
{
    FirmwareRig rig(GetParam(), threeChunks(), {});
    rig.startAndExpect();
    rig.sendFirstMainChunk(Frame::chunk(mainMcu, 0, 4096, Bytes(4096, 1)));
    rig.acknowledgeAndSend(mainMcu, 0, Frame::chunk(mainMcu, 0x1000, 4096, Bytes(4096, 2)));
    rig.acknowledgeAndSend(mainMcu, 0,
                           Frame::chunk(mainMcu, 0x2000, 1808, Frame::over(Bytes(1808, 3), Bytes(4096, 2))));
}

// Chunk 0 sent twice and acknowledged twice, the first time within 0.1 s of the resend:
// chunk 1 is never sent.
TEST_P(UsbDeviceFirmwareReplies, chunkZeroAcknowledgedTwiceBehindItsResend_skipsChunkOne)
{
    FirmwareRig rig(GetParam(), threeChunks(), {});
    rig.startAndExpect();
    const Bytes frame = Frame::chunk(mainMcu, 0, 4096, Bytes(4096, 1));
    rig.sendFirstMainChunk(frame);
    rig.resend(frame);
    rig.acknowledgeEarly(40ms, mainMcu, 0, 4096);
    rig.acknowledgeEarly(40ms, mainMcu, 0, 4096);
    rig.pollAfter(20ms);
    rig.want.lastSentOffset = 0x2000;
    rig.wantChunk(mainMcu, 0x2000, 1808);
    rig.expectStep({Frame::chunk(mainMcu, 0x2000, 1808, Frame::over(Bytes(1808, 3), Bytes(4096, 1)))}, {writingMain});
}

// Failures that a panel reports are repeated without limit: each ends the row.
TEST_P(UsbDeviceFirmwareReplies, reportedFailures_neverRestart)
{
    FirmwareRig rig(GetParam(), nine, {});
    rig.startAndExpect();
    const Bytes frame = Frame::chunk(mainMcu, 0, 9, nineOver);
    rig.sendFirstMainChunk(frame);
    for (unsigned int i = 0; i < 20; ++i) {
        rig.replyAfter(100ms, command(0xF2));
        rig.want.resends = i + 2;
        rig.want.retries = 1;
        rig.wantChunk(mainMcu, 0, 9);
        rig.expectStep({frame}, {writingMain, rig.resendLine()});
    }
}

// The main image's last replies may come late: they count for the servo image then.
TEST_P(UsbDeviceFirmwareReplies, lateReplyOfTheMainImage_movesTheServoOffset)
{
    FirmwareRig rig(GetParam(), nine, twoChunks());
    finishMain(rig);
    rig.goOn();
    rig.pollAfter(0s);
    const Bytes first = Bytes(4096, 4);
    rig.wantChunk(servoMcu, 0, 4096);
    rig.expectStep({Frame::chunk(servoMcu, 0, 4096, first)}, {writingServo});
    rig.acknowledgeAfter(100ms, mainMcu, 0, 9);
    rig.want.servoOffset = 4096;
    rig.wantProgress();
    rig.wantChunk(servoMcu, 0x1000, 1);
    rig.expectStep({Frame::chunk(servoMcu, 0x1000, 1, Frame::over({5}, first))},
                   {rig.successLine(mainMcu, 0, 9), writingServo});
}

} // namespace Vantor::Test
