#include "panelctl/flash/FlashDiagnosis.h"

#include "panelctl/flash/FlashReplies.h"
#include "tests/support/TemporaryFolder.h"

#include <csignal>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

namespace {

constexpr const char* halfWritten =
    "The panel is left half written, and may not work until that is mended: run the same command again, which writes "
    "everything from the start. If the panel does not answer then, re-plug it and try once more.";
constexpr const char* unwritable =
    "The panel is left half written, and may not work. Its flash fails at this place each time, which running the same "
    "command again may not mend: is the image too large for it, or meant for another panel?";
const std::string untouched =
    "The panel has confirmed nothing: it may still hold its old firmware, or have erased it. ";
constexpr const char* doubt =
    "Is the image too large for it, or meant for another panel? If neither, re-plug it and try once more.";

// An upgrade of 5000 bytes, 2 chunks, for the main MCU alone.
class FlashDiagnosisTest : public testing::Test {
protected:
    FlashDiagnosisTest() { m_images.main = FirmwareImage("--main", m_main.getPath()); }

    // As record 40 has it, from the main MCU.
    void reply(std::uint8_t command, std::uint8_t offsetHigh = 0, int times = 1)
    {
        for (; times > 0; --times)
            m_replies.take({command, 1, 0, offsetHigh, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    }

    FlashState at(std::uint32_t written, std::uint32_t lateSentBytes = 0)
    {
        return {m_images, m_replies, written, lateSentBytes};
    }

    std::string stuck(const FlashState& state) const
    {
        const std::string text = explainStuck("panel 0101 (1-1)", state, std::chrono::seconds(3));
        const std::string start = "panel 0101 (1-1) has made no progress for 3 s: it had confirmed ";
        EXPECT_EQ(text.substr(0, start.size()), start);
        return text.substr(start.size());
    }

    const TemporaryFile m_main{std::string(5000, 'm')};
    FirmwareImages m_images;
    FlashReplies m_replies;
};

TEST_F(FlashDiagnosisTest, silentPanel_takesWhatIsSentOrNothing)
{
    reply(1);
    m_replies.markProgress();
    EXPECT_EQ(stuck(at(4096, 9)), "4096 of 5000 bytes of the main image.\n"
                                  "It takes what is sent (endpoint 0x02, 9 bytes since) but does not reply (endpoint "
                                  "0x81).\n" +
                                      std::string(halfWritten));
    EXPECT_EQ(stuck(at(4096)), "4096 of 5000 bytes of the main image.\n"
                               "It takes nothing any more (endpoint 0x02): its firmware hangs, or has stalled the "
                               "endpoint.\n" +
                                   std::string(halfWritten));
}

TEST_F(FlashDiagnosisTest, twoImages_areAlsoCountedInAll)
{
    const TemporaryFile servo(std::string(5000, 's'));
    m_images.servo = FirmwareImage("--servo", servo.getPath());
    EXPECT_THAT(stuck(at(4096)),
                testing::StartsWith("4096 of 5000 bytes of the main image (4096 of 10000 bytes in all).\n"));
    EXPECT_THAT(stuck(at(5096)),
                testing::StartsWith("96 of 5000 bytes of the servo image (5096 of 10000 bytes in all).\n"));
}

// Is it an image for another panel?
TEST_F(FlashDiagnosisTest, panelThatConfirmsNothing_isAskedAbout)
{
    EXPECT_THAT(stuck(at(0, 9)), testing::EndsWith(untouched + doubt));
    reply(2);
    reply(0xF1, 0, 3);
    EXPECT_EQ(stuck(at(0, 9)), "0 of 5000 bytes of the main image.\n"
                               "Since then it has replied 4 times (send again: 1, erase failed: 3).\n" +
                                   untouched + doubt);
}

TEST_F(FlashDiagnosisTest, requestThatIsRefused_isToldAsOneReply)
{
    reply(0);
    EXPECT_EQ(stuck(at(0)), "0 of 5000 bytes of the main image.\n"
                            "Since then it has replied 1 time (invalid: 1).\n" +
                                untouched + doubt);
}

// It may hold for ever: no promise that a repeat mends it.
TEST_F(FlashDiagnosisTest, flashThatFailsEachTime_isNotSaidToBeMendedByARepeat)
{
    reply(1);
    m_replies.markProgress();
    reply(0xF0, 0x10, 2);
    EXPECT_EQ(stuck(at(4096)), "4096 of 5000 bytes of the main image.\n"
                               "Since then it has replied 2 times (write failed: 2).\n" +
                                   std::string(unwritable));
    reply(0xF1, 0x10);
    EXPECT_EQ(stuck(at(4096)), "4096 of 5000 bytes of the main image.\n"
                               "Since then it has replied 3 times (write failed: 2, erase failed: 1).\n" +
                                   std::string(unwritable));
    reply(2, 0x10);
    EXPECT_EQ(stuck(at(4096)),
              "4096 of 5000 bytes of the main image.\n"
              "Since then it has replied 4 times (send again: 1, write failed: 2, erase failed: 1).\n" +
                  std::string(halfWritten));
}

TEST_F(FlashDiagnosisTest, panelThatIsPulled_saysHowFarItGotAndWhatItReplied)
{
    const std::string start = "P went away while it was written: it was unplugged. It had confirmed ";
    EXPECT_EQ(explainPulled("P", "it was unplugged", at(0)),
              start + "0 of 5000 bytes of the main image.\nPlug it in again. " + untouched +
                  "Run the same command again.");
    reply(0xF2);
    EXPECT_EQ(explainPulled("P", "it was unplugged", at(0)),
              start +
                  "0 of 5000 bytes of the main image.\nReplies: failed, send again: 1.\nPlug it in "
                  "again. " +
                  untouched + doubt);
    reply(1);
    EXPECT_THAT(explainPulled("P", "it was unplugged", at(0)), testing::EndsWith(halfWritten))
        << "the library's count may be behind";
    m_replies.markProgress();
    EXPECT_EQ(explainPulled("P", "it was unplugged", at(4096)),
              start +
                  "4096 of 5000 bytes of the main image.\nReplies: failed, send again: 1.\nPlug "
                  "it in again. " +
                  halfWritten);
}

// The library counts a second confirmation of offset 0 as that of the next chunk.
TEST_F(FlashDiagnosisTest, chunkThatWasSkipped_isNamed)
{
    reply(1, 0, 2);
    const std::string skipped = "the chunk at offset 4096 of the main image was never confirmed: most likely a reply "
                                "that came twice or late had it skipped.\nReplies: confirmed once more: 1.\n" +
                                std::string(halfWritten);
    EXPECT_FALSE(at(5000).isAllConfirmed());
    EXPECT_EQ(explainUnconfirmed("P", at(5000)), "the upgrade of P came to its end, but " + skipped);
    EXPECT_EQ(explainInterrupted("P", at(5000)), "interrupted, when P was almost done; " + skipped);
}

TEST_F(FlashDiagnosisTest, secondInterrupt_tellsHowToRecover)
{
    reply(1);
    EXPECT_FALSE(at(4096).isAllConfirmed());
    EXPECT_EQ(explainInterrupted("P", at(4096)),
              "interrupted, when P had confirmed 4096 of 5000 bytes of the main image.\n" + std::string(halfWritten));
    reply(1, 0x10);
    EXPECT_TRUE(at(5000).isAllConfirmed());
    EXPECT_FALSE(at(4999).isAllConfirmed());
    EXPECT_EQ(explainInterrupted("P", at(5000)), "interrupted, when P had confirmed all of the firmware, but before it "
                                                 "was seen to answer again.\n`panelctl info` shows whether it does.");
}

TEST_F(FlashDiagnosisTest, firstInterrupt_saysWhatIsAtRiskAndHowToLeave)
{
    EXPECT_EQ(warnOfInterrupt("P", false, SIGINT), "interrupted, but P would be left half written: the upgrade goes "
                                                   "on.\nPress Ctrl-C once more to leave all the same.");
    EXPECT_EQ(warnOfInterrupt("P", true, SIGTERM), "interrupted, when P had confirmed all of the firmware: the upgrade "
                                                   "ends within a second.\nInterrupt it once more to leave all the "
                                                   "same.");
}

TEST_F(FlashDiagnosisTest, panelWithoutAnAnswer_isSilentOrHasLeft)
{
    const std::string start = "the firmware is written, every chunk of it confirmed, but P ";
    const std::string end = " 3 s.\nRe-plug it, then see with `panelctl info` whether it answers. If it does not, is "
                            "this the right firmware for it?";
    EXPECT_EQ(explainNoAnswer("P", false, std::chrono::seconds(3)),
              start + "has not sent its device information since, for" + end);
    EXPECT_EQ(explainNoAnswer("P", true, std::chrono::seconds(3)),
              start + "left the bus and has not come back within" + end);
}

} // namespace
} // namespace Vantor
