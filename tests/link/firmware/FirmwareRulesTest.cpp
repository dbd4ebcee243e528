// What the rules of an upgrade do not survive: each with its shortest schedule, and what
// the panel's flash holds then. docs/limits.md tells what to do about them.
//
// The request goes out at 0 and is answered after 10 ms, which is too soon for a step:
// chunk 0, called c0, follows at 0.1 s. A panel takes 0.11 s a chunk unless told otherwise.
#include "tests/link/firmware/UpgradeRun.h"
#include "tests/support/Random.h"

#include <algorithm>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace Vantor::Test {

namespace {

using Kind = FirmwareFault::Kind;

struct Result {
    bool ended;
    std::size_t mainBytes;  // in flash, all of them those of the image
    std::size_t servoBytes; // likewise
    std::uint32_t progress; // as last reported
};

std::ostream& operator<<(std::ostream& out, const Result& result)
{
    return out << (result.ended ? "ended" : "not ended") << ", main " << result.mainBytes << ", servo "
               << result.servoBytes << ", progress " << result.progress;
}

bool operator==(const Result& left, const Result& right)
{
    return left.ended == right.ended && left.mainBytes == right.mainBytes && left.servoBytes == right.servoBytes &&
           left.progress == right.progress;
}

// How much of the image the flash holds; nothing if it holds something else.
std::size_t sameBytes(const BootLoader::Image& flash, const Bytes& image)
{
    const bool isPart =
        flash.bytes.size() <= image.size() && std::equal(flash.bytes.begin(), flash.bytes.end(), image.begin());
    return isPart ? flash.bytes.size() : 0;
}

UpgradeRun::Options images(std::size_t mainSize, std::size_t servoSize,
                           std::chrono::nanoseconds chunkTime = std::chrono::milliseconds(110))
{
    Random random(1);
    UpgradeRun::Options options;
    options.main = random.bytes(mainSize);
    options.servo = random.bytes(servoSize);
    options.chunkTime = chunkTime;
    return options;
}

Result resultOf(const UpgradeRun& run, const UpgradeRun::Options& options)
{
    const BootLoader::Flash& flash = run.bootLoader().getFlash();
    return {!run.device->isUpdating(), sameBytes(flash.main, options.main), sameBytes(flash.servo, options.servo),
            run.progress()};
}

Result upgrade(const UpgradeRun::Options& options, const FirmwareFaults& faults)
{
    UpgradeRun run(options);
    run.run(faults);
    return resultOf(run, options);
}

} // namespace

// Acknowledged twice, chunk 0 counts for two: an address of 0 is never a repetition. From
// there on the host is a chunk ahead of the panel.

TEST(FirmwareRules, replyToChunkZeroTwice_hasTwoChunksOnTheirWay)
{
    // c1 goes out at 0.21 with the first reply, c2 at 0.31 for the second, while the panel
    // is at c1; and so on to the end.
    for (const std::size_t size : {8192u, 9000u, 20000u}) {
        EXPECT_EQ(upgrade(images(size, 0), {{1, Kind::ReplyTwice}}),
                  (Result{true, size, 0, static_cast<std::uint32_t>(size)}));
        EXPECT_EQ(upgrade(images(0, size), {{1, Kind::ReplyTwice}}),
                  (Result{true, 0, size, static_cast<std::uint32_t>(size)}));
    }
}

TEST(FirmwareRules, replyToChunkZeroTwiceAtOnce_skipsChunkOne)
{
    // Within 0.1 s of the send, so that no step is taken between the two.
    EXPECT_EQ(upgrade(images(9000, 0, 10ms), {{1, Kind::ReplyTwice}}), (Result{false, 4096, 0, 8192}));
    EXPECT_EQ(upgrade(images(5000, 0, 10ms), {{1, Kind::ReplyTwice}}), (Result{true, 4096, 0, 8192}));
}

TEST(FirmwareRules, replyToTheOnlyChunkTwice_onlyCountsTooMuch)
{
    EXPECT_EQ(upgrade(images(4096, 0, 10ms), {{1, Kind::ReplyTwice}}), (Result{true, 4096, 0, 8192}));
}

// One chunk ahead, the upgrade is over while the last chunk is on its way: nobody sends
// it again. Even the progress is as it should be.
TEST(FirmwareRules, aChunkAheadAndTheLastOneLost_endsWithoutIt)
{
    EXPECT_EQ(upgrade(images(5000, 0), {{1, Kind::ReplyTwice}, {2, Kind::SendLost}}), (Result{true, 4096, 0, 5000}));
}

// What has chunk 0 sent twice has it acknowledged twice.

TEST(FirmwareRules, replyToChunkZeroAfterTheResend_skipsAChunk)
{
    // Sent at 0.1, again at 0.8, acknowledged at 0.85 and 0.86: both too soon after the
    // resend for a step, and both count.
    EXPECT_EQ(upgrade(images(9000, 0, 10ms), {{1, Kind::ReplyLate, 0, 740ms}}), (Result{false, 4096, 0, 8192}));
    // At 1.11 and 1.22: each has a chunk sent at once.
    EXPECT_EQ(upgrade(images(9000, 0), {{1, Kind::ReplyLate, 0, 900ms}}), (Result{true, 9000, 0, 9000}));
}

TEST(FirmwareRules, readThatDeliversNothingForTwoSeconds_leavesAChunkUnsent)
{
    // Sent at 0.1, 0.8 and 1.5; the three replies come at 2.01. The first has c1 sent, the
    // others count for two more chunks: c2 is never sent, and c3 refused for the gap.
    EXPECT_EQ(upgrade(images(9000, 0), {{1, Kind::ReadTimedOut}}), (Result{true, 8192, 0, 12288}));
    EXPECT_EQ(upgrade(images(20000, 0), {{1, Kind::ReadTimedOut}}), (Result{false, 8192, 0, 16384}));
}

TEST(FirmwareRules, replyToTheRequestAfterChunkZero_skipsAChunk)
{
    // "Send again" is obeyed: chunk 0 has just been sent, and is sent once more.
    EXPECT_EQ(upgrade(images(9000, 0, 10ms), {{0, Kind::ReplyLate, 0, 1300ms}}), (Result{false, 4096, 0, 8192}));
}

TEST(FirmwareRules, panelThatTakesNothingForTwoSeconds_getsChunkZeroThreeTimes)
{
    // Each resend queues another copy, and all go out from 2.1 on: with c1, which the first
    // reply has sent, four chunks are counted, that is more than there are.
    EXPECT_EQ(upgrade(images(9000, 0, 10ms), {{1, Kind::SendTimedOut}}), (Result{true, 8192, 0, 16384}));
}

// A main image of one chunk: its late reply comes when the servo image is on its way, and
// has the host a chunk ahead there.
TEST(FirmwareRules, lateReplyToAMainImageOfOneChunk_countsForTheServoImage)
{
    // Sent at 0.1 and 0.8, acknowledged at 0.81 and 1.56; the servo image begins at 1.5.
    const FirmwareFaults late = {{1, Kind::ReplyLate, 0, 600ms}, {2, Kind::ReplyLate, 0, 640ms}};
    EXPECT_EQ(upgrade(images(100, 20000), late), (Result{true, 100, 20000, 20100}));
    FirmwareFaults andLost = late;
    andLost.push_back({7, Kind::SendLost}); // the last of the servo image's five chunks
    EXPECT_EQ(upgrade(images(100, 20000), andLost), (Result{true, 100, 16384, 20100}));
}

// The address is all that a repetition is known by.
TEST(FirmwareRules, corruptAddressInTheReplyToAChunkSentTwice_losesTheLastChunk)
{
    for (const unsigned int byte : {2u, 3u, 4u, 5u}) {
        EXPECT_EQ(upgrade(images(14000, 0), {{2, Kind::ReadHeld, 0, 1500ms}, {3, Kind::ReplyCorrupt, byte}}),
                  (Result{true, 12288, 0, 16384}));
        // Alone it does no harm.
        EXPECT_EQ(upgrade(images(14000, 0), {{2, Kind::ReplyCorrupt, byte}}), (Result{true, 14000, 0, 14000}));
    }
}

// A failure that arrives as "written" is believed.

TEST(FirmwareRules, failureThatArrivesAsWritten_losesTheChunk)
{
    EXPECT_EQ(upgrade(images(100, 0), {{1, Kind::ReplyCode, 1}}), (Result{true, 0, 0, 100}));
    EXPECT_EQ(upgrade(images(9000, 0), {{3, Kind::ReplyCode, 1}}), (Result{true, 8192, 0, 9000}));
}

TEST(FirmwareRules, failureThatArrivesAsWrittenInTheMiddle_neverEnds)
{
    EXPECT_EQ(upgrade(images(9000, 0), {{1, Kind::ReplyCode, 1}}), (Result{false, 0, 0, 4096}));
}

// The request is sent once; only silence has it sent again, and only in the main image.

TEST(FirmwareRules, lostRequest_neverEndsOnAPanelThatAnswersChunksWithoutOne)
{
    UpgradeRun::Options options = images(9000, 100);
    options.silentWithoutRequest = false;
    EXPECT_EQ(upgrade(options, {{0, Kind::SendLost}}), (Result{false, 0, 0, 0}));
    EXPECT_EQ(upgrade(options, {{0, Kind::SendCorrupt, 30}}), (Result{false, 0, 0, 0}));
    EXPECT_EQ(upgrade(options, {{0, Kind::ReplyCode, 0}}), (Result{false, 0, 0, 0}));
}

TEST(FirmwareRules, lostRequestOnAPanelThatIsSilentWithoutOne_isSentAgain)
{
    const UpgradeRun::Options options = images(9000, 100);
    EXPECT_EQ(upgrade(options, {{0, Kind::SendLost}}), (Result{true, 9000, 100, 9100}));
    EXPECT_EQ(upgrade(options, {{0, Kind::SendCorrupt, 30}}), (Result{true, 9000, 100, 9100}));
    EXPECT_EQ(upgrade(options, {{0, Kind::ReplyCode, 0}}), (Result{true, 9000, 100, 9100}));
}

TEST(FirmwareRules, lostRequestOfAServoImageAlone_neverEnds)
{
    for (const bool silent : {false, true}) {
        UpgradeRun::Options options = images(0, 100);
        options.silentWithoutRequest = silent;
        EXPECT_EQ(upgrade(options, {{0, Kind::SendLost}}), (Result{false, 0, 0, 0}));
    }
}

// The panel still works to the first upgrade's announcement: 20,000 bytes have another
// length at 8,192 than 9,000.
TEST(FirmwareRules, lostRequestOfASecondUpgrade_isTakenUnderTheFirstOnes)
{
    const UpgradeRun::Options first = images(20000, 0);
    UpgradeRun run(first);
    run.run(FirmwareFaults{});
    EXPECT_EQ(resultOf(run, first), (Result{true, 20000, 0, 20000}));
    UpgradeRun::Options second = images(9000, 0);
    std::reverse(second.main.begin(), second.main.end());
    run.setImages(second.main, second.servo);
    run.run({{0, Kind::SendLost}});
    EXPECT_EQ(resultOf(run, second), (Result{false, 8192, 0, 8192}));
}

TEST(FirmwareRules, lostRequestOfASecondUpgradeOfTheSameSize_failsThePanelsCheck)
{
    UpgradeRun::Options options = images(9000, 0);
    UpgradeRun run(options);
    run.run(FirmwareFaults{});
    std::reverse(options.main.begin(), options.main.end());
    run.setImages(options.main, options.servo);
    run.run({{0, Kind::SendLost}});
    EXPECT_EQ(resultOf(run, options), (Result{true, 9000, 0, 9000}));
    EXPECT_EQ(run.bootLoader().getFlash().main.state, BootLoader::State::Mismatched);
}

// What the rules do survive although it looks alike.

TEST(FirmwareRules, everyOtherSingleFault_isSurvived)
{
    for (unsigned int packet = 0; packet < 6; ++packet) {
        // Main 1 to 3, servo 4 and 5; chunk 0 of each image may not be slow.
        const bool isChunkZero = packet == 1 || packet == 4;
        FirmwareFaults faults = {{packet, Kind::SendStalled}, {packet, Kind::SendRefused},
                                 {packet, Kind::ReplyLost},   {packet, Kind::ReplyCorrupt, 0},
                                 {packet, Kind::ReadStalled}, {packet, Kind::ReadFailed},
                                 {packet, Kind::ReadCut, 20}, {packet, Kind::ReplyLate, 0, 200ms}};
        if (packet != 0)
            faults.insert(faults.end(), {{packet, Kind::SendLost},
                                         {packet, Kind::SendCorrupt, 30},
                                         {packet, Kind::SendCut, 2000},
                                         {packet, Kind::ReplyCode, 0},
                                         {packet, Kind::ReplyCode, 2},
                                         {packet, Kind::ReplyCode, 0xF0},
                                         {packet, Kind::ReplyCode, 0xF1},
                                         {packet, Kind::ReplyCode, 0xF2},
                                         {packet, Kind::ReplyCode, 99}});
        if (packet != 0 && !isChunkZero)
            faults.insert(faults.end(), {{packet, Kind::SendTimedOut},
                                         {packet, Kind::SendHeld, 0, 1900ms},
                                         {packet, Kind::ReadTimedOut},
                                         {packet, Kind::ReadHeld, 0, 1900ms},
                                         {packet, Kind::ReplyTwice},
                                         {packet, Kind::ReplyLate, 0, 1900ms}});
        for (const FirmwareFault& fault : faults) {
            for (const auto chunkTime : {10ms, 110ms, 300ms})
                EXPECT_EQ(upgrade(images(9000, 5000, chunkTime), {fault}), (Result{true, 9000, 5000, 14000}))
                    << fault << ", chunk time " << chunkTime.count() << " ms";
        }
    }
}

// The first chunk goes out 0.1 s after the request, ten chunks of 0.1 s follow, and the two
// steps that end the upgrade are due 0.7 s after the last of them went out.
TEST(FirmwareRules, quickPanel_getsAChunkEveryTenthOfASecond)
{
    const auto duration = [](std::chrono::milliseconds chunkTime) {
        UpgradeRun run(images(40960, 0, chunkTime)); // ten chunks
        EXPECT_EQ(run.run(FirmwareFaults{}), "");
        return run.duration();
    };
    EXPECT_EQ(duration(5ms), 100ms + 9 * 100ms + 700ms);
    EXPECT_EQ(duration(99ms), 100ms + 9 * 100ms + 700ms);
    EXPECT_EQ(duration(100ms), 100ms + 9 * 100ms + 700ms);
    EXPECT_EQ(duration(200ms), 100ms + 9 * 200ms + 700ms);
}

} // namespace Vantor::Test
