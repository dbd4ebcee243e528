#include "simulator/panel/BootLoader.h"

#include "tests/unit/panel/BootLoaderFixture.h"

#include <stdexcept>

namespace Vantor {
namespace {

using namespace BootRecords;
using namespace std::chrono_literals;

using testing::ElementsAre;
using testing::IsEmpty;
using Kind = BootFault::Kind;

// A session for a main image of 8,192 bytes is open.
class BootLoaderFault : public BootLoaderFixture {
protected:
    void SetUp() override { announce(request(8192, crcOf8192)); }

    static BootFault replyFault(std::uint8_t code)
    {
        BootFault result = fault(Kind::Reply);
        result.code = code;
        return result;
    }

    static BootFault delayFault(std::chrono::nanoseconds delay)
    {
        BootFault result = fault(Kind::Delay);
        result.delay = delay;
        return result;
    }

    static BootFault corruptFault(unsigned int offset)
    {
        BootFault result = fault(Kind::Corrupt);
        result.offset = offset;
        return result;
    }

    static Bytes mainChunk(std::uint32_t address) { return chunk(mainBoard, address, part(image(8192), address)); }
    static Bytes written(std::uint32_t address) { return writtenReply(mainBoard, image(8192), address); }
};

TEST_F(BootLoaderFault, reply_isTheCodeAndNothingIsWritten)
{
    const std::uint32_t checksum = checksumOf(mainChunk(0));
    for (const std::uint8_t code : Bytes{0x00, 0x02, 0xF0, 0xF1, 0xF2, 0x77}) {
        m_loader.inject(replyFault(code));
        EXPECT_THAT(answers(chunkType, mainChunk(0)), ElementsAre(reply(code, mainBoard, 0, 0, checksum)));
        EXPECT_THAT(m_loader.getFlash().main.bytes, IsEmpty());
    }
    EXPECT_EQ(m_loader.getStatistics().chunksRefused, 6u);
    // A lie, down to the number of bytes.
    m_loader.inject(replyFault(1));
    EXPECT_THAT(answers(chunkType, mainChunk(0)), ElementsAre(reply(1, mainBoard, 0, 4096, checksum)));
    EXPECT_THAT(m_loader.getFlash().main.bytes, IsEmpty());

    m_loader.inject(replyFault(0xF1));
    EXPECT_THAT(answers(requestType, request(4096, crcOf4096)), ElementsAre(reply(0xF1)));
    EXPECT_EQ(m_loader.getFlash().main.size, 8192u);
    EXPECT_EQ(m_loader.getStatistics().requestsRefused, 1u);
    expectWritten(mainBoard, image(8192), 0);
}

TEST_F(BootLoaderFault, reply_comesAsQuicklyAsARefusal)
{
    m_loader.inject(replyFault(0xF0));
    take(chunkType, mainChunk(0));
    EXPECT_EQ(m_loader.nextDeadline(), m_now + 10ms);
}

TEST_F(BootLoaderFault, lose_isDoneButNotAnswered)
{
    m_loader.inject(fault(Kind::Lose));
    take(chunkType, mainChunk(0));
    EXPECT_EQ(m_loader.nextDeadline(), m_now + 110ms);
    EXPECT_THAT(repliesAt(m_now + 1s), IsEmpty());
    EXPECT_EQ(m_loader.getFlash().main.written, 4096u);
    EXPECT_EQ(m_loader.getStatistics().chunksWritten, 1u);
    EXPECT_EQ(m_loader.getStatistics().replies, 1u); // the request's
    EXPECT_EQ(m_loader.getStatistics().recordsLost, 0u);
    expectWritten(mainBoard, image(8192), 0);
}

TEST_F(BootLoaderFault, ignore_isAsIfItHadNeverCome)
{
    m_loader.inject(fault(Kind::Ignore));
    take(chunkType, mainChunk(0));
    EXPECT_EQ(m_loader.nextDeadline(), std::nullopt);
    EXPECT_THAT(m_loader.getFlash().main.bytes, IsEmpty());
    EXPECT_EQ(m_loader.getStatistics().recordsLost, 1u);
    EXPECT_EQ(m_loader.getStatistics().records, 2u);
    expectWritten(mainBoard, image(8192), 0);
}

TEST_F(BootLoaderFault, delay_holdsWhatWaitsBehindIt)
{
    m_loader.inject(delayFault(700ms));
    const auto start = m_now;
    take(chunkType, mainChunk(0));
    take(chunkType, mainChunk(4096));
    EXPECT_EQ(m_loader.nextDeadline(), start + 810ms);
    EXPECT_THAT(repliesAt(start + 810ms - 1ns), IsEmpty());
    EXPECT_THAT(repliesAt(start + 810ms), ElementsAre(written(0)));
    EXPECT_EQ(m_loader.nextDeadline(), start + 920ms);
}

TEST_F(BootLoaderFault, duplicate_isAnsweredTwice)
{
    m_loader.inject(fault(Kind::Duplicate));
    EXPECT_THAT(answers(chunkType, mainChunk(0)), ElementsAre(written(0), written(0)));
    EXPECT_EQ(m_loader.getStatistics().chunksWritten, 1u);
    EXPECT_EQ(m_loader.getStatistics().replies, 3u);
}

TEST_F(BootLoaderFault, corrupt_invertsOneByteOfTheAnswer)
{
    for (const unsigned int offset : {0u, 1u, 13u}) {
        m_loader.inject(corruptFault(offset));
        Bytes expected = written(0);
        expected[offset] = static_cast<std::uint8_t>(~expected[offset]);
        EXPECT_THAT(answers(chunkType, mainChunk(0)), ElementsAre(expected));
        EXPECT_EQ(m_loader.getFlash().main.written, 4096u);
    }
    EXPECT_THROW(m_loader.inject(corruptFault(14)), std::invalid_argument);
}

TEST_F(BootLoaderFault, unplug_tellsTheCallerAndLosesTheRecord)
{
    m_loader.inject(fault(Kind::Unplug));
    EXPECT_FALSE(m_loader.take(chunkType, mainChunk(0), m_now));
    EXPECT_EQ(m_loader.nextDeadline(), std::nullopt);
    EXPECT_EQ(m_loader.getStatistics().recordsLost, 1u);
    EXPECT_TRUE(m_loader.take(chunkType, mainChunk(0), m_now));
}

TEST_F(BootLoaderFault, waitingRecord_isNotMetByALaterFault)
{
    take(chunkType, mainChunk(0));
    take(chunkType, mainChunk(4096));
    m_loader.inject(replyFault(0xF0));
    EXPECT_THAT(repliesAt(m_now + 1s), ElementsAre(written(0), written(4096)));
    EXPECT_THAT(answers(chunkType, mainChunk(0)), ElementsAre(reply(0xF0, mainBoard, 0, 0, checksumOf(mainChunk(0)))));
}

TEST_F(BootLoaderFault, otherRecord_usesNoFaultUp)
{
    m_loader.inject(fault(Kind::Ignore));
    take(static_cast<PacketType>(5), {});
    EXPECT_THAT(answers(chunkType, mainChunk(0)), IsEmpty());
}

TEST_F(BootLoaderFault, clear_dropsAll)
{
    m_loader.inject(fault(Kind::Ignore));
    m_loader.inject(fault(Kind::Ignore, 0, true));
    m_loader.clearFaults();
    expectWritten(mainBoard, image(8192), 0);
}

} // namespace
} // namespace Vantor
