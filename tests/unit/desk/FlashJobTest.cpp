#include "panel2mqtt/desk/FlashJob.h"

#include <gmock/gmock.h>

namespace Vantor {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::HasSubstr;
using State = FlashJob::State;
using Word = Answer::Word;

const FlashJob::TimePoint started{std::chrono::hours(1)};

FirmwareUpgradeCommand replyOf(std::uint8_t command, std::uint32_t address, std::uint8_t board = FirmwareData::MainMcu)
{
    return {command, board, address, 0, 0};
}

FirmwareUpgradeCommand written(std::uint32_t address, std::uint8_t board = FirmwareData::MainMcu)
{
    return replyOf(FirmwareUpgradeCommand::ChunkWritten, address, board);
}

// Of 5,000 bytes of the main image: two chunks, of 4,096 and 904 bytes.
FlashJob startJob(std::uint32_t main = 5000, std::uint32_t servo = 0)
{
    FlashJob job(main, servo);
    job.start(started);
    job.onProgress(true, 0, main + servo, started);
    job.poll(started);
    return job;
}

// All of it confirmed, and the library done.
FlashJob writtenJob(FlashJob::TimePoint now)
{
    FlashJob job = startJob();
    job.onReply(written(0));
    job.onReply(written(4096));
    job.onProgress(false, 5000, 5000, now);
    job.poll(now);
    return job;
}

TEST(FlashJob, new_isQueuedAndDueAtOnce)
{
    const FlashJob job(5000, 300);
    EXPECT_EQ(job.getState(), State::Queued);
    EXPECT_EQ(job.getTotal(), 5300u);
    EXPECT_EQ(job.getWritten(), 0u);
    EXPECT_LE(job.getNextDue(), started);
    EXPECT_FALSE(job.isOver());
}

TEST(FlashJob, started_isWritingWithTheLibrarysCount)
{
    FlashJob job = startJob();
    EXPECT_EQ(job.getState(), State::Writing);
    job.onProgress(true, 4096, 5000, started + seconds(1));
    EXPECT_EQ(job.getWritten(), 4096u);
}

TEST(FlashJob, libraryCountsTooMuch_staysWithinTheTotalAndNeverGoesBack)
{
    FlashJob job = startJob();
    job.onProgress(true, 8192, 5000, started);
    EXPECT_EQ(job.getWritten(), 5000u);
    job.onProgress(true, 4096, 5000, started);
    EXPECT_EQ(job.getWritten(), 5000u);
}

TEST(FlashJob, allConfirmedWhileTheLibraryGoesOn_isStillWriting)
{
    FlashJob job = startJob();
    job.onReply(written(0));
    job.onReply(written(4096));
    job.onProgress(true, 5000, 5000, started);
    job.poll(started);
    EXPECT_EQ(job.getState(), State::Writing);
}

TEST(FlashJob, libraryDoneAndAllConfirmed_isWrittenThenAnswering)
{
    FlashJob job = writtenJob(started + seconds(2));
    EXPECT_EQ(job.getState(), State::Written);
    EXPECT_FALSE(job.isOver());
    EXPECT_TRUE(job.takeQuestion(started + seconds(2)));
    job.onInformation();
    job.poll(started + seconds(3));
    EXPECT_EQ(job.getState(), State::Answering);
    EXPECT_TRUE(job.isOver());
    EXPECT_EQ(job.getEnd().word, Word::Taken);
    EXPECT_EQ(job.getNextDue(), FlashJob::TimePoint::max());
}

TEST(FlashJob, informationWhileWriting_isNoAnswer)
{
    FlashJob job = startJob();
    job.onInformation();
    job.onReply(written(0));
    job.onReply(written(4096));
    job.onProgress(false, 5000, 5000, started);
    job.poll(started);
    job.poll(started);
    EXPECT_EQ(job.getState(), State::Written);
}

TEST(FlashJob, servoImage_itsChunksCountByTheirBoard)
{
    FlashJob job = startJob(100, 100);
    job.onReply(written(0));
    job.onReply(written(0));
    job.onProgress(false, 200, 200, started);
    job.poll(started);
    EXPECT_EQ(job.getState(), State::Writing); // of the servo none has been confirmed
    job.onReply(written(0, FirmwareData::ServoMcu));
    job.poll(started + milliseconds(500));
    EXPECT_EQ(job.getState(), State::Written);
}

TEST(FlashJob, libraryDoneButAChunkNeverConfirmed_failsASecondLater)
{
    FlashJob job = startJob();
    job.onReply(written(0));
    job.onReply(written(0));
    job.onProgress(false, 5000, 5000, started);
    job.poll(started + milliseconds(999));
    EXPECT_EQ(job.getState(), State::Writing);
    job.onProgress(false, 5000, 5000, started + milliseconds(999)); // looked at again, which is no progress
    job.poll(started + seconds(1));
    EXPECT_EQ(job.getState(), State::Failed);
    EXPECT_EQ(job.getEnd().word, Word::Unknown);
    EXPECT_EQ(job.getEnd().reason, "the panel has never confirmed byte 4096 of the main image: flash it again");
}

TEST(FlashJob, silence_failsAfterThirtySecondsWithoutProgress)
{
    FlashJob job = startJob();
    job.onProgress(true, 4096, 5000, started + seconds(20));
    job.poll(started + seconds(20));
    job.onProgress(true, 4096, 5000, started + seconds(49));
    job.poll(started + seconds(49));
    EXPECT_EQ(job.getState(), State::Writing);
    job.onProgress(true, 4096, 5000, started + seconds(50));
    job.poll(started + seconds(50));
    EXPECT_EQ(job.getState(), State::Failed);
    EXPECT_EQ(job.getEnd().word, Word::Expired);
    EXPECT_EQ(job.getEnd().reason, "the panel has confirmed nothing for 30 s, at 4096 of 5000 bytes: plug it in anew "
                                   "and flash it again");
}

TEST(FlashJob, confirmationAlone_isProgress)
{
    FlashJob job = startJob();
    job.onReply(written(4096));
    job.poll(started + seconds(29));
    job.poll(started + seconds(58));
    EXPECT_EQ(job.getState(), State::Writing);
    job.onReply(written(4096)); // once more: none
    job.poll(started + seconds(59));
    EXPECT_EQ(job.getState(), State::Failed);
}

TEST(FlashJob, flashMemoryFails_saysSo)
{
    for (const std::uint8_t command : {FirmwareUpgradeCommand::WriteFailed, FirmwareUpgradeCommand::EraseFailed}) {
        FlashJob job = startJob();
        job.onReply(replyOf(command, 0));
        job.poll(started + seconds(30));
        EXPECT_EQ(job.getState(), State::Failed);
        EXPECT_THAT(job.getEnd().reason, HasSubstr("fails to write its flash memory, at 0 of 5000 bytes"));
    }
}

TEST(FlashJob, imagesOfAnotherSize_fails)
{
    FlashJob job(5000, 0);
    job.start(started);
    job.onProgress(true, 0, 4999, started);
    EXPECT_EQ(job.getState(), State::Failed);
    EXPECT_EQ(job.getEnd().word, Word::Refused);
}

TEST(FlashJob, panelLeavesInTheMiddle_failsWithItsPosition)
{
    FlashJob job = startJob();
    job.onReply(written(0));
    job.onProgress(true, 4096, 5000, started);
    job.onPanelLeft(started);
    EXPECT_EQ(job.getState(), State::Failed);
    EXPECT_EQ(job.getEnd().word, Word::Offline);
    EXPECT_EQ(job.getEnd().reason, "the panel left at 4096 of 5000 bytes: flash it again");
    job.onPanelReady();
    job.poll(started + seconds(1));
    EXPECT_EQ(job.getState(), State::Failed);
}

TEST(FlashJob, panelLeavesWhileQueued_fails)
{
    FlashJob job(5000, 0);
    job.onPanelLeft(started);
    EXPECT_EQ(job.getState(), State::Failed);
    EXPECT_EQ(job.getEnd().word, Word::Offline);
}

TEST(FlashJob, panelRestartsBeforeTheLibraryIsDone_isWrittenAndComesBack)
{
    FlashJob job = startJob();
    job.onReply(written(0));
    job.onReply(written(4096));
    job.onProgress(true, 5000, 5000, started);
    job.onPanelLeft(started);
    EXPECT_EQ(job.getState(), State::Written);
    EXPECT_FALSE(job.takeQuestion(started));
    job.onPanelReady();
    job.poll(started + seconds(3));
    EXPECT_EQ(job.getState(), State::Answering);
}

TEST(FlashJob, writtenAndAwayForThirtySeconds_fails)
{
    FlashJob job = writtenJob(started);
    job.onPanelLeft(started + seconds(1));
    job.poll(started + seconds(29));
    EXPECT_EQ(job.getState(), State::Written);
    EXPECT_EQ(job.getNextDue(), started + seconds(30));
    job.poll(started + seconds(30));
    EXPECT_EQ(job.getState(), State::Failed);
    EXPECT_EQ(job.getEnd().word, Word::Offline);
    EXPECT_EQ(job.getEnd().reason, "written, but the panel has not come back within 30 s: plug it in anew");
}

TEST(FlashJob, writtenAndSilentForThirtySeconds_fails)
{
    FlashJob job = writtenJob(started);
    job.poll(started + seconds(30));
    EXPECT_EQ(job.getState(), State::Failed);
    EXPECT_EQ(job.getEnd().word, Word::Expired);
    EXPECT_EQ(job.getEnd().reason, "written, but the panel has not answered within 30 s: plug it in anew");
}

TEST(FlashJob, writtenAndSilent_isAskedEveryFiveSeconds)
{
    FlashJob job = writtenJob(started);
    EXPECT_TRUE(job.takeQuestion(started));
    EXPECT_FALSE(job.takeQuestion(started + milliseconds(4999)));
    EXPECT_EQ(job.getNextDue(), started + seconds(5));
    EXPECT_TRUE(job.takeQuestion(started + seconds(5)));
}

TEST(FlashJob, writing_isLookedAtEveryTenthOfASecond)
{
    FlashJob job = startJob();
    EXPECT_EQ(job.getNextDue(), started + milliseconds(100));
}

} // namespace
} // namespace Vantor
