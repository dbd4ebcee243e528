#include "panelctl/flash/FlashReplies.h"

#include "tests/support/Bytes.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace Vantor {

namespace {

constexpr std::uint8_t mainMcu = 1;
constexpr std::uint8_t servoMcu = 15;

// Command, board, offset; length and checksum do not matter.
Bytes reply(unsigned int command, std::uint8_t board, unsigned int offset)
{
    Bytes bytes(14, 0);
    bytes[0] = static_cast<std::uint8_t>(command);
    bytes[1] = board;
    bytes[2] = static_cast<std::uint8_t>(offset);
    bytes[3] = static_cast<std::uint8_t>(offset >> 8);
    return bytes;
}

// 8193 bytes for the main MCU, 3 chunks; 4096 for the servo MCU.
class FlashRepliesTest : public ::testing::Test {
protected:
    FlashRepliesTest() : m_main(std::string(8193, 'm')), m_servo(std::string(4096, 's'))
    {
        m_images.main = FirmwareImage("--main", m_main.getPath());
        m_images.servo = FirmwareImage("--servo", m_servo.getPath());
    }

    void takeAllButTheServos()
    {
        for (const unsigned int offset : {0U, 4096U, 8192U})
            m_replies.take(reply(1, mainMcu, offset));
    }

    TemporaryFile m_main;
    TemporaryFile m_servo;
    FirmwareImages m_images;
    FlashReplies m_replies;
};

} // namespace

TEST_F(FlashRepliesTest, everyChunkConfirmed_leavesNone)
{
    takeAllButTheServos();
    m_replies.take(reply(1, servoMcu, 0));
    EXPECT_FALSE(m_replies.findUnconfirmed(m_images));
    EXPECT_EQ(m_replies.describeTroubles(), "");
    EXPECT_TRUE(m_replies.hasConfirmed());
    EXPECT_TRUE(m_replies.getLate().empty());
}

TEST_F(FlashRepliesTest, chunkOfTheOtherBoard_isAnotherOne)
{
    takeAllButTheServos();
    const auto missing = m_replies.findUnconfirmed(m_images);
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->board, FirmwareData::ServoMcu);
    EXPECT_EQ(missing->offset, 0U);
}

// Chunk 0 confirmed twice counts as two chunks with the library.
TEST_F(FlashRepliesTest, confirmationRepeated_countsOnce)
{
    for (const unsigned int offset : {0U, 0U, 8192U})
        m_replies.take(reply(1, mainMcu, offset));
    const auto missing = m_replies.findUnconfirmed(m_images);
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->board, FirmwareData::MainMcu);
    EXPECT_EQ(missing->offset, 4096U);
    EXPECT_EQ(m_replies.describeTroubles(), "confirmed once more: 1");
}

TEST_F(FlashRepliesTest, refusals_confirmNothing)
{
    m_replies.take(reply(1, mainMcu, 0));
    for (const unsigned int command : {0U, 2U, 0xF0U, 0xF0U, 0xF1U, 0xF2U, 0x77U})
        m_replies.take(reply(command, mainMcu, 4096));
    const auto missing = m_replies.findUnconfirmed(m_images);
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->offset, 4096U);
    EXPECT_EQ(m_replies.describeTroubles(), "invalid: 1, send again: 1, unknown (0x77): 1, write failed: 2, "
                                            "erase failed: 1, failed, send again: 1");
    EXPECT_EQ(describeCounts(m_replies.getLate()), m_replies.describeTroubles());
}

TEST_F(FlashRepliesTest, answerToTheRequest_isNoTrouble)
{
    m_replies.take(reply(2, 0, 0));
    EXPECT_EQ(m_replies.describeTroubles(), "");
    EXPECT_EQ(describeCounts(m_replies.getLate()), "send again: 1");
    EXPECT_FALSE(m_replies.hasConfirmed());
}

TEST_F(FlashRepliesTest, payloadOfAnotherLength_isNoReply)
{
    Bytes payload = reply(1, mainMcu, 0);
    payload.push_back(0);
    m_replies.take(payload);
    m_replies.take({1, mainMcu});
    m_replies.take({});
    EXPECT_TRUE(m_replies.getLate().empty());
    EXPECT_FALSE(m_replies.hasConfirmed());
}

TEST_F(FlashRepliesTest, progress_forgetsWhatCameBefore)
{
    m_replies.take(reply(0xF0, mainMcu, 0));
    m_replies.take(reply(1, mainMcu, 0));
    m_replies.markProgress();
    m_replies.take(reply(1, mainMcu, 0));
    m_replies.take(reply(0xF1, mainMcu, 4096));
    m_replies.take(reply(0xF1, mainMcu, 4096));
    EXPECT_EQ(describeCounts(m_replies.getLate()), "chunk written: 1, erase failed: 2");
    EXPECT_EQ(m_replies.describeTroubles(), "write failed: 1, erase failed: 2, confirmed once more: 1");
}

// 0.7 s less a chunk of 0.11; the main image's is over with the first byte of the servo image.
TEST_F(FlashRepliesTest, pauses_areOneForEachImageToCome)
{
    using std::chrono::milliseconds;
    EXPECT_EQ(m_images.estimatePauses(0), milliseconds(1180));
    EXPECT_EQ(m_images.estimatePauses(8193), milliseconds(1180));
    EXPECT_EQ(m_images.estimatePauses(8194), milliseconds(590));
    m_images.servo.reset();
    EXPECT_EQ(m_images.estimatePauses(0), milliseconds(590));
}

} // namespace Vantor
