#include "simulator/panel/BootLoader.h"

#include "simulator/panel/ImageCrc.h"
#include "tests/unit/panel/BootLoaderFixture.h"

#include <stdexcept>

namespace Vantor {
namespace {

using namespace BootRecords;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class BootLoaderTest : public BootLoaderFixture {
protected:
    void expectRefused(const Bytes& record, std::uint8_t board, std::uint32_t address)
    {
        const Bytes before = m_loader.getFlash().main.bytes;
        const std::uint32_t written = m_loader.getFlash().main.written;
        EXPECT_THAT(answers(chunkType, record), ElementsAre(reply(0xF2, board, address, 0, checksumOf(record))));
        EXPECT_EQ(m_loader.getFlash().main.bytes, before);
        EXPECT_EQ(m_loader.getFlash().main.written, written);
    }
};

TEST(BootLoaderImageCrc, knownValues)
{
    EXPECT_EQ(calculateImageCrc({}), 0u);
    EXPECT_EQ(calculateImageCrc({'1', '2', '3', '4', '5', '6', '7', '8', '9'}), 0xCBF43926u);
    EXPECT_EQ(calculateImageCrc(Bytes(4096)), 0xC71C0011u); // of zeros
    EXPECT_EQ(calculateImageCrc(image(10000)), crcOf10000);
}

// "123456789" for the main MCU, every byte by hand.
TEST_F(BootLoaderTest, smallestUpgrade_byteByByte)
{
    const Bytes announced{0,    0, 0,    0, 0, 0, 0, 0, 0, 0, 9, 0, 0, 0,    0x26, 0x39, 0xF4,
                          0xCB, 0, 0x30, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x57, 0x02, 0,    0};
    EXPECT_THAT(answers(requestType, announced), ElementsAre(Bytes{2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(m_loader.getFlash().main.state, State::Incomplete);
    EXPECT_EQ(m_loader.getFlash().main.size, 9u);
    EXPECT_EQ(m_loader.getFlash().main.crc, 0xCBF43926u);

    Bytes data{1, 0, 0, 0, 0, 9, 0, 0, 0, '1', '2', '3', '4', '5', '6', '7', '8', '9'};
    data.resize(4109);
    data[4105] = 0xE7;
    data[4106] = 0x01;
    EXPECT_THAT(answers(chunkType, data), ElementsAre(Bytes{1, 1, 0, 0, 0, 0, 9, 0, 0, 0, 0xE7, 0x01, 0, 0}));
    EXPECT_THAT(m_loader.getFlash().main.bytes, ElementsAre('1', '2', '3', '4', '5', '6', '7', '8', '9'));
    EXPECT_EQ(m_loader.getFlash().main.state, State::Verified);
    EXPECT_EQ(m_loader.getFlash().servo.state, State::Untouched);
}

TEST_F(BootLoaderTest, bothImages_verified)
{
    announce(request(10000, crcOf10000, 8192, crcOf8192));
    for (const std::uint32_t address : {0u, 4096u, 8192u})
        expectWritten(mainBoard, image(10000), address);
    EXPECT_EQ(m_loader.getFlash().main.state, State::Verified);
    EXPECT_EQ(m_loader.getFlash().servo.state, State::Incomplete);
    for (const std::uint32_t address : {0u, 4096u})
        expectWritten(servoBoard, image(8192), address);
    EXPECT_EQ(m_loader.getFlash().main.bytes, image(10000));
    EXPECT_EQ(m_loader.getFlash().servo.bytes, image(8192));
    EXPECT_EQ(m_loader.getFlash().servo.state, State::Verified);
    EXPECT_EQ(m_loader.getStatistics().records, 6u);
    EXPECT_EQ(m_loader.getStatistics().requestsAccepted, 1u);
    EXPECT_EQ(m_loader.getStatistics().chunksWritten, 5u);
    EXPECT_EQ(m_loader.getStatistics().replies, 6u);
}

TEST_F(BootLoaderTest, otherCrc_mismatched)
{
    announce(request(5000, crcOf5000 ^ 1));
    expectWritten(mainBoard, image(5000), 0);
    expectWritten(mainBoard, image(5000), 4096);
    EXPECT_EQ(m_loader.getFlash().main.state, State::Mismatched);
    EXPECT_EQ(m_loader.getFlash().main.bytes, image(5000));
}

TEST_F(BootLoaderTest, wrongRequest_isInvalidAndOpensNothing)
{
    const Bytes good = request(5000, crcOf5000);
    const auto with = [&good](std::size_t offset, std::uint8_t value) {
        Bytes bytes = good;
        bytes[offset] = value;
        return sign(bytes);
    };
    Bytes unsigned_ = good;
    ++unsigned_[30];
    Bytes late = good;
    ++late[33];
    Bytes longer = good;
    longer.push_back(0);
    for (const Bytes& wrong :
         {with(0, 1), with(9, 1), with(18, 1), with(19, 0x31), with(20, 1), with(21, 1), unsigned_, late, Bytes{},
          Bytes(33), Bytes(3), sign(longer), request((2U << 20) + 1, 0), request(0, 0, (1U << 20) + 1, 0)}) {
        EXPECT_THAT(answers(requestType, wrong), ElementsAre(reply(0)));
        EXPECT_THAT(answers(chunkType, chunk(mainBoard, 0, image(4096))), IsEmpty());
    }
    EXPECT_EQ(m_loader.getFlash().main.state, State::Untouched);
    EXPECT_EQ(m_loader.getStatistics().requestsRefused, 14u);
    EXPECT_EQ(m_loader.getStatistics().requestsAccepted, 0u);
}

TEST_F(BootLoaderTest, imagesOfTheCapacity_areAccepted)
{
    announce(request(2U << 20, 0, 1U << 20, 0));
    EXPECT_EQ(m_loader.getFlash().main.size, 2U << 20);
    EXPECT_EQ(m_loader.getFlash().servo.size, 1U << 20);
}

TEST_F(BootLoaderTest, wrongRequest_leavesTheOpenSession)
{
    announce(request(5000, crcOf5000));
    expectWritten(mainBoard, image(5000), 0);
    EXPECT_THAT(answers(requestType, Bytes(34)), ElementsAre(reply(0)));
    expectWritten(mainBoard, image(5000), 4096);
    EXPECT_EQ(m_loader.getFlash().main.state, State::Verified);
}

TEST_F(BootLoaderTest, sameRequest_keepsWhatIsWritten)
{
    announce(request(8192, crcOf8192, 4096, crcOf4096));
    expectWritten(mainBoard, image(8192), 0);
    announce(request(8192, crcOf8192, 4096, crcOf4096));
    EXPECT_EQ(m_loader.getFlash().main.written, 4096u);
    expectWritten(mainBoard, image(8192), 4096);
    EXPECT_EQ(m_loader.getFlash().main.state, State::Verified);
    announce(request(8192, crcOf8192, 4096, crcOf4096));
    EXPECT_EQ(m_loader.getFlash().main.state, State::Verified);
}

TEST_F(BootLoaderTest, requestThatDiffersInOneField_beginsAgain)
{
    for (const Bytes& other :
         {request(8193, crcOf8192, 4096, crcOf4096), request(8192, crcOf8192 + 1, 4096, crcOf4096),
          request(8192, crcOf8192, 4097, crcOf4096), request(8192, crcOf8192, 4096, crcOf4096 + 1)}) {
        announce(request(8192, crcOf8192, 4096, crcOf4096));
        expectWritten(mainBoard, image(8192), 0);
        announce(other);
        EXPECT_EQ(m_loader.getFlash().main.written, 0u);
        EXPECT_EQ(m_loader.getFlash().main.state, State::Incomplete);
        EXPECT_EQ(m_loader.getFlash().main.bytes.size(), 4096u); // until a chunk erases it
        expectRefused(chunk(mainBoard, 4096, part(image(8192), 4096)), mainBoard, 4096);
    }
}

TEST_F(BootLoaderTest, wrongChunk_isFailedSendAgainAndWritesNothing)
{
    announce(request(10000, crcOf10000));
    expectWritten(mainBoard, image(10000), 0);
    const Bytes data = part(image(10000), 4096);
    const Bytes good = chunk(mainBoard, 4096, data);

    Bytes wrongSum = good;
    wrongSum[4105] ^= 1;
    expectRefused(wrongSum, mainBoard, 4096);
    Bytes wrongSumEnd = good;
    wrongSumEnd[4108] ^= 1;
    expectRefused(wrongSumEnd, mainBoard, 4096);
    Bytes wrongStale = chunk(mainBoard, 8192, part(image(10000), 8192));
    wrongStale[4104] ^= 1; // behind the data, and under the checksum all the same
    expectRefused(wrongStale, mainBoard, 8192);
    expectRefused(chunk(0, 4096, data), 0, 4096);
    expectRefused(chunk(2, 4096, data), 2, 4096);
    expectRefused(chunk(servoBoard, 0, data), servoBoard, 0);                         // not announced
    expectRefused(chunk(mainBoard, 8192, part(image(10000), 8192)), mainBoard, 8192); // a gap
    expectRefused(chunk(mainBoard, 2048, data), mainBoard, 2048);                     // inside a chunk
    expectRefused(chunk(mainBoard, 0xFFFFF000, data), mainBoard, 0xFFFFF000);         // far outside
    expectRefused(chunk(mainBoard, 4096, Bytes(data.begin(), data.end() - 1)), mainBoard, 4096);
    expectRefused(chunk(mainBoard, 4096, {}), mainBoard, 4096);
    Bytes tooLong = good;
    put(tooLong, 5, 4097);
    expectRefused(sign(tooLong), mainBoard, 4096);
    put(tooLong, 5, 0xFFFFFFFF);
    expectRefused(sign(tooLong), mainBoard, 4096);
    EXPECT_EQ(m_loader.getStatistics().chunksRefused, 13u);
    EXPECT_EQ(m_loader.getStatistics().chunksWritten, 1u);

    expectWritten(mainBoard, image(10000), 4096);
    expectRefused(chunk(mainBoard, 8192, image(4096)), mainBoard, 8192); // beyond the announced size
    expectRefused(chunk(mainBoard, 8192, image(1807)), mainBoard, 8192);
    expectWritten(mainBoard, image(10000), 8192);
    expectRefused(chunk(mainBoard, 10000, {}), mainBoard, 10000);
    expectRefused(chunk(mainBoard, 12288, {}), mainBoard, 12288);
    EXPECT_EQ(m_loader.getFlash().main.state, State::Verified);
}

TEST_F(BootLoaderTest, chunkForNoBoard_isRefusedWhateverIsAnnounced)
{
    announce(request(4096, crcOf4096, 4096, crcOf4096));
    for (const std::uint8_t board : Bytes{0, 2, 14, 16, 0x81, 0xFF})
        expectRefused(chunk(board, 0, image(4096)), board, 0);
    EXPECT_THAT(m_loader.getFlash().servo.bytes, IsEmpty());
}

TEST_F(BootLoaderTest, emptyChunkAtTheEnd_isRefused)
{
    announce(request(8192, crcOf8192));
    expectWritten(mainBoard, image(8192), 0);
    expectWritten(mainBoard, image(8192), 4096);
    expectRefused(chunk(mainBoard, 8192, {}), mainBoard, 8192);
}

TEST_F(BootLoaderTest, chunkOfAnotherSize_isRefusedWithoutItsFields)
{
    announce(request(10000, crcOf10000));
    Bytes shorter = chunk(mainBoard, 0, part(image(10000), 0));
    shorter.pop_back();
    Bytes longer = chunk(mainBoard, 0, part(image(10000), 0));
    longer.push_back(0);
    for (const Bytes& wrong : {sign(shorter), sign(longer), Bytes{}, Bytes(3)})
        EXPECT_THAT(answers(chunkType, wrong), ElementsAre(reply(0xF2)));
}

TEST_F(BootLoaderTest, chunkWithoutSession_isNotAnswered)
{
    EXPECT_THAT(answers(chunkType, chunk(mainBoard, 0, image(4096))), IsEmpty());
    EXPECT_EQ(m_loader.getStatistics().chunksRefused, 1u);
    EXPECT_THAT(m_loader.getFlash().main.bytes, IsEmpty());
}

TEST_F(BootLoaderTest, chunkWithoutSession_isRefusedIfWanted)
{
    BootLoader::Options options;
    options.refusesWithoutSession = true;
    BootLoader loader(options, {});
    EXPECT_TRUE(loader.take(chunkType, chunk(mainBoard, 0, image(4096)), 0ns));
    const auto replies = loader.takeReplies(1s);
    ASSERT_EQ(replies.size(), 1u);
    EXPECT_EQ(replies[0][0], 0xF2);
}

TEST_F(BootLoaderTest, chunkAgain_rewritesIt)
{
    announce(request(10000, crcOf10000));
    expectWritten(mainBoard, image(10000), 0);
    expectWritten(mainBoard, Bytes(10000, 0xAA), 4096);
    expectWritten(mainBoard, image(10000), 4096);
    EXPECT_EQ(m_loader.getFlash().main.written, 8192u);
    expectWritten(mainBoard, image(10000), 8192);
    EXPECT_EQ(m_loader.getFlash().main.state, State::Verified);
    expectWritten(mainBoard, Bytes(10000, 0xAA), 4096);
    EXPECT_EQ(m_loader.getFlash().main.state, State::Mismatched);
    EXPECT_EQ(m_loader.getFlash().main.bytes.size(), 10000u);
    expectWritten(mainBoard, image(10000), 4096);
    EXPECT_EQ(m_loader.getFlash().main.state, State::Verified);
}

TEST_F(BootLoaderTest, chunkAtZero_erasesThatMcuAlone)
{
    BootLoader::Flash flash;
    flash.main.bytes = Bytes(9000, 0x11);
    flash.servo.bytes = Bytes(9000, 0x22);
    BootLoader loader(BootLoader::Options{}, flash);
    const Bytes record = chunk(mainBoard, 0, image(4096));
    ASSERT_TRUE(loader.take(requestType, request(8192, crcOf8192), 0s));
    ASSERT_TRUE(loader.take(chunkType, record, 1s));
    loader.takeReplies(2s);
    EXPECT_EQ(loader.getFlash().main.bytes, image(4096));
    EXPECT_EQ(loader.getFlash().main.state, State::Incomplete);
    EXPECT_EQ(loader.getFlash().servo.bytes, Bytes(9000, 0x22));
    EXPECT_EQ(loader.getFlash().servo.state, State::Untouched);

    ASSERT_TRUE(loader.take(chunkType, chunk(mainBoard, 4096, part(image(8192), 4096)), 3s));
    ASSERT_TRUE(loader.take(chunkType, record, 4s));
    loader.takeReplies(5s);
    EXPECT_EQ(loader.getFlash().main.bytes, image(4096)); // and what had followed it is gone
    EXPECT_EQ(loader.getFlash().main.written, 4096u);
    EXPECT_EQ(loader.getFlash().main.state, State::Incomplete);
}

TEST_F(BootLoaderTest, imageOfSizeZero_leavesItsMcuAlone)
{
    announce(request(4096, crcOf4096));
    expectWritten(mainBoard, image(4096), 0);
    announce(request(0, 0, 4096, crcOf4096));
    EXPECT_EQ(m_loader.getFlash().main.state, State::Verified);
    expectRefused(chunk(mainBoard, 0, image(4096)), mainBoard, 0);
    expectWritten(servoBoard, image(4096), 0);
    EXPECT_EQ(m_loader.getFlash().main.bytes, image(4096));
    EXPECT_EQ(m_loader.getFlash().servo.state, State::Verified);
}

TEST_F(BootLoaderTest, flashBeyondItsCapacity_throws)
{
    BootLoader::Options options;
    options.mainCapacity = 100;
    options.servoCapacity = 50;
    BootLoader::Flash flash;
    flash.main.bytes.resize(100);
    flash.servo.bytes.resize(50);
    EXPECT_NO_THROW(BootLoader(options, flash));
    flash.main.bytes.resize(101);
    EXPECT_THROW(BootLoader(options, flash), std::invalid_argument);
    flash.main.bytes.resize(100);
    flash.servo.bytes.resize(51);
    EXPECT_THROW(BootLoader(options, flash), std::invalid_argument);
}

TEST_F(BootLoaderTest, otherRecords_areNotTaken)
{
    take(static_cast<PacketType>(40), request(1, 1));
    take(static_cast<PacketType>(45), chunk(mainBoard, 0, image(1)));
    EXPECT_EQ(m_loader.nextDeadline(), std::nullopt);
    EXPECT_EQ(m_loader.getStatistics().records, 0u);
    EXPECT_FALSE(BootLoader::isFirmwareRecord(static_cast<PacketType>(40)));
    EXPECT_TRUE(BootLoader::isFirmwareRecord(requestType));
    EXPECT_TRUE(BootLoader::isFirmwareRecord(chunkType));
}

} // namespace
} // namespace Vantor
