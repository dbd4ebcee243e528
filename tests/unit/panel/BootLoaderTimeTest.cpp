#include "simulator/panel/BootLoader.h"

#include "tests/unit/panel/BootLoaderFixture.h"

namespace Vantor {
namespace {

using namespace BootRecords;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class BootLoaderTime : public BootLoaderFixture {
protected:
    // A session for a main image of 10,000 bytes, open since 10 ms and idle at 1 s.
    void open()
    {
        take(requestType, request(10000, crcOf10000));
        ASSERT_THAT(repliesAt(1s), ElementsAre(reply(2)));
    }

    static Bytes mainChunk(std::uint32_t address) { return chunk(mainBoard, address, part(image(10000), address)); }
    static Bytes written(std::uint32_t address) { return writtenReply(mainBoard, image(10000), address); }
    static Bytes refused(std::uint32_t address)
    {
        return reply(0xF2, mainBoard, address, 0, checksumOf(mainChunk(address)));
    }
};

TEST_F(BootLoaderTime, request_isAnsweredAfterTenMilliseconds)
{
    EXPECT_EQ(m_loader.nextDeadline(), std::nullopt);
    m_now = 5s;
    take(requestType, request(10000, crcOf10000));
    EXPECT_EQ(m_loader.nextDeadline(), 5s + 10ms);
    EXPECT_THAT(repliesAt(5s + 10ms - 1ns), IsEmpty());
    EXPECT_EQ(m_loader.getFlash().main.state, State::Untouched);
    EXPECT_THAT(repliesAt(5s + 10ms), ElementsAre(reply(2)));
    EXPECT_EQ(m_loader.nextDeadline(), std::nullopt);
    EXPECT_THAT(repliesAt(6s), IsEmpty());
}

TEST_F(BootLoaderTime, chunk_isWrittenAndAnsweredAfter110Milliseconds)
{
    open();
    take(chunkType, mainChunk(0));
    EXPECT_EQ(m_loader.nextDeadline(), 1110ms);
    EXPECT_THAT(repliesAt(1110ms - 1ns), IsEmpty());
    EXPECT_THAT(m_loader.getFlash().main.bytes, IsEmpty());
    EXPECT_THAT(repliesAt(1110ms), ElementsAre(written(0)));
    EXPECT_EQ(m_loader.getFlash().main.bytes.size(), 4096u);
}

TEST_F(BootLoaderTime, refusedChunk_takesTenMilliseconds)
{
    open();
    take(chunkType, mainChunk(4096));
    EXPECT_EQ(m_loader.nextDeadline(), 1010ms);
    EXPECT_THAT(repliesAt(1010ms), ElementsAre(refused(4096)));
}

TEST_F(BootLoaderTime, chunkDuringAnother_waitsItsTurn)
{
    open();
    take(chunkType, mainChunk(0));
    m_now += 109ms;
    take(chunkType, mainChunk(4096)); // a gap as yet, but not when its turn comes
    EXPECT_EQ(m_loader.nextDeadline(), 1110ms);
    EXPECT_THAT(repliesAt(1110ms), ElementsAre(written(0)));
    EXPECT_EQ(m_loader.nextDeadline(), 1220ms);
    EXPECT_THAT(repliesAt(1220ms - 1ns), IsEmpty());
    EXPECT_THAT(repliesAt(1220ms), ElementsAre(written(4096)));
}

// Whoever asks late gets the same as one who asks all the time.
TEST_F(BootLoaderTime, askedLate_allInOrderAndNothingLater)
{
    take(requestType, request(10000, crcOf10000)); // until 10 ms
    take(chunkType, mainChunk(0));                 // until 120 ms
    take(chunkType, mainChunk(8192));              // until 130 ms, refused
    m_now = 50ms;
    take(chunkType, mainChunk(4096)); // until 240 ms
    EXPECT_THAT(repliesAt(240ms - 1ns), ElementsAre(reply(2), written(0), refused(8192)));
    m_now = 400ms;
    take(chunkType, mainChunk(8192)); // until 510 ms: idle since 240 ms
    EXPECT_THAT(m_loader.takeReplies(m_now), ElementsAre(written(4096)));
    EXPECT_EQ(m_loader.nextDeadline(), 510ms);
}

TEST_F(BootLoaderTime, options_setBothTimes)
{
    BootLoader::Options options;
    options.chunkTime = 0ms;
    options.checkTime = 7ns;
    BootLoader loader(options, {});
    EXPECT_TRUE(loader.take(requestType, request(10000, crcOf10000), 0ns));
    EXPECT_EQ(loader.nextDeadline(), 7ns);
    EXPECT_THAT(loader.takeReplies(7ns), ElementsAre(reply(2)));
    EXPECT_TRUE(loader.take(chunkType, mainChunk(0), 7ns));
    EXPECT_THAT(loader.takeReplies(7ns), ElementsAre(written(0)));
}

TEST_F(BootLoaderTime, flood_isLostBeyondSixteenThatWait)
{
    for (int i = 0; i < 20; ++i)
        take(requestType, request(10000, crcOf10000));
    EXPECT_EQ(m_loader.getStatistics().records, 20u);
    EXPECT_EQ(m_loader.getStatistics().recordsLost, 3u);
    EXPECT_EQ(repliesAt(1s).size(), 17u);
    take(requestType, request(10000, crcOf10000));
    EXPECT_EQ(repliesAt(2s).size(), 1u);
}

TEST_F(BootLoaderTime, flood_isOverWhenItIsWorkedOffAlsoIfNobodyAsked)
{
    for (int i = 0; i < 17; ++i)
        take(requestType, request(10000, crcOf10000));
    m_now = 170ms;
    take(requestType, request(10000, crcOf10000));
    EXPECT_EQ(m_loader.getStatistics().recordsLost, 0u);
    EXPECT_EQ(m_loader.nextDeadline(), 180ms);
}

TEST_F(BootLoaderTime, powerOff_losesWhatIsUnderWayAndTheSession)
{
    open();
    take(chunkType, mainChunk(0));
    take(chunkType, mainChunk(4096));
    take(chunkType, mainChunk(8192));
    m_loader.powerOff(1220ms - 1ns);
    EXPECT_EQ(m_loader.getFlash().main.bytes, part(image(10000), 0));
    EXPECT_EQ(m_loader.getFlash().main.state, State::Incomplete);
    EXPECT_EQ(m_loader.nextDeadline(), std::nullopt);
    EXPECT_THAT(repliesAt(2s), IsEmpty());
    take(chunkType, mainChunk(4096));
    EXPECT_THAT(repliesAt(3s), IsEmpty());
    // The same request as before: the session is a new one.
    announce(request(10000, crcOf10000));
    EXPECT_EQ(m_loader.getFlash().main.written, 0u);
}

TEST_F(BootLoaderTime, powerOffAtTheLastNanosecond_isTooLateToLoseAnything)
{
    open();
    take(chunkType, mainChunk(0));
    m_loader.powerOff(1110ms);
    EXPECT_EQ(m_loader.getFlash().main.bytes.size(), 4096u);
    EXPECT_THAT(repliesAt(2s), IsEmpty()); // but the answer
}

TEST_F(BootLoaderTime, takenFlash_goesOnInTheNextLife)
{
    open();
    take(chunkType, mainChunk(0));
    m_loader.powerOff(2s);
    const BootLoader next(BootLoader::Options{}, m_loader.takeFlash());
    EXPECT_EQ(next.getFlash().main.bytes.size(), 4096u);
    EXPECT_EQ(next.getFlash().main.state, State::Incomplete);
    EXPECT_EQ(next.getFlash().main.size, 10000u);
    EXPECT_THAT(m_loader.getFlash().main.bytes, IsEmpty());
    EXPECT_EQ(m_loader.getFlash().main.state, State::Untouched);
}

} // namespace
} // namespace Vantor
