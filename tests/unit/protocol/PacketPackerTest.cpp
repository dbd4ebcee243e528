#include "protocol/PacketPacker.h"

#include "tests/support/PackedBytes.h"

#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

std::size_t add(PacketPacker& packer, const Bytes& payload, int type)
{
    return packer.addStructData(payload.data(), static_cast<unsigned int>(payload.size()), typeOf(type));
}

// What reaches the virtual three-argument addStructData.
class RecordingPacker : public PacketPacker {
public:
    RecordingPacker() : PacketPacker(8192) {}

    std::size_t addStructData(const void* data, const unsigned int& size, const PacketType& type) override
    {
        const auto* bytes = static_cast<const std::uint8_t*>(data);
        m_records.push_back({static_cast<int>(type), Bytes(bytes, bytes + size)});
        return size;
    }

    std::vector<PackedRecord> m_records;
};

class StateOfPacker : public PacketPacker {
public:
    StateOfPacker() : PacketPacker(1000) {}

    std::ptrdiff_t offsetOfPacket() const { return offsetOf(&m_packet); }
    std::ptrdiff_t offsetOfWritePosition() const { return offsetOf(&m_writePosition); }
    std::ptrdiff_t offsetOfMaxPacketSize() const { return offsetOf(&m_maxPacketSize); }
    std::ptrdiff_t offsetOfHeader() const { return offsetOf(&m_header); }

    unsigned char* packetMember() const { return m_packet; }
    std::uint32_t writePosition() const { return m_writePosition; }
    std::uint16_t maxPacketSize() const { return m_maxPacketSize; }
    const PacketHeader& header() const { return m_header; }

private:
    template <typename Member> std::ptrdiff_t offsetOf(const Member* member) const
    {
        const auto* object = reinterpret_cast<const char*>(static_cast<const PacketPacker*>(this));
        return reinterpret_cast<const char*>(member) - object;
    }
};

} // namespace

TEST(PacketPacker, fresh_isHeaderAlone)
{
    const PacketPacker packer(100);
    EXPECT_EQ(packetOf(packer), (Bytes{8, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(packer.getPacketSize(), 8u);
    EXPECT_EQ(packer.getPacketCount(), 0u);
    EXPECT_EQ(packer.getPacketSizeRemaining(), 92u);
}

TEST(PacketPacker, oneRecord_isFramedByTypeAndLength)
{
    PacketPacker packer(100);
    EXPECT_EQ(add(packer, {0xAA, 0xBB, 0xCC}, 5), 6u);
    EXPECT_EQ(packetOf(packer), (Bytes{14, 0, 1, 0, 0, 0, 0, 0, 5, 3, 0, 0xAA, 0xBB, 0xCC}));
    EXPECT_EQ(packer.getPacketCount(), 1u);
    EXPECT_EQ(packer.getPacketSizeRemaining(), 86u);
}

TEST(PacketPacker, secondRecord_goesBehindTheFirst)
{
    PacketPacker packer(100);
    add(packer, {0x11}, 46);
    EXPECT_EQ(add(packer, {0x22, 0x33}, 0), 5u);
    EXPECT_EQ(packetOf(packer), (Bytes{17, 0, 2, 0, 0, 0, 0, 0, 46, 1, 0, 0x11, 0, 2, 0, 0x22, 0x33}));
}

TEST(PacketPacker, lengthsAbove255_areLittleEndian)
{
    PacketPacker packer(1000);
    EXPECT_EQ(add(packer, Bytes(300, 0x5A), 7), 303u);
    const Bytes packet = packetOf(packer);
    ASSERT_EQ(packet.size(), 311u);
    EXPECT_EQ(Bytes(packet.begin(), packet.begin() + 12), (Bytes{0x37, 0x01, 1, 0, 0, 0, 0, 0, 7, 0x2C, 0x01, 0x5A}));
    EXPECT_EQ(packet.back(), 0x5A);
}

TEST(PacketPacker, count256_isLittleEndian)
{
    PacketPacker packer(8192);
    for (int i = 0; i < 256; ++i)
        add(packer, {}, 1);
    const Bytes packet = packetOf(packer);
    EXPECT_EQ(Bytes(packet.begin(), packet.begin() + 8), (Bytes{0x08, 0x03, 0x00, 0x01, 0, 0, 0, 0}));
    EXPECT_EQ(packer.getPacketCount(), 256u);
}

TEST(PacketPacker, emptyRecord_isTaken)
{
    PacketPacker packer(100);
    EXPECT_EQ(packer.addStructData(nullptr, 0, typeOf(9)), 3u);
    EXPECT_EQ(packetOf(packer), (Bytes{11, 0, 1, 0, 0, 0, 0, 0, 9, 0, 0}));
}

TEST(PacketPacker, nullWithSize_isNotTaken)
{
    PacketPacker packer(100);
    EXPECT_EQ(packer.addStructData(nullptr, 1, typeOf(9)), 0u);
    EXPECT_EQ(packetOf(packer), (Bytes{8, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(PacketPacker, typeAboveOneByte_travelsAsItsLowByte)
{
    PacketPacker packer(100);
    add(packer, {1}, 0x12C);
    EXPECT_EQ(packetOf(packer).at(8), 0x2C);
}

TEST(PacketPacker, recordThatFillsTheLimit_isTaken)
{
    PacketPacker packer(16);
    EXPECT_EQ(add(packer, {1, 2, 3, 4, 5}, 5), 8u);
    EXPECT_EQ(packer.getPacketSize(), 16u);
    EXPECT_EQ(packer.getPacketSizeRemaining(), 0u);
}

TEST(PacketPacker, recordOneByteAboveTheLimit_changesNothing)
{
    PacketPacker packer(16);
    EXPECT_EQ(add(packer, {1, 2, 3, 4, 5, 6}, 5), 0u);
    EXPECT_EQ(packetOf(packer), (Bytes{8, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(packer.getPacketSizeRemaining(), 8u);
}

TEST(PacketPacker, limitBelowTheHeader_leavesNothing)
{
    PacketPacker packer(5);
    EXPECT_EQ(packer.getPacketSizeRemaining(), 0u);
    EXPECT_EQ(packer.addStructData(nullptr, 0, typeOf(1)), 0u);
    EXPECT_EQ(packer.getPacketSize(), 8u);
}

TEST(PacketPacker, limitAbove65535_isTakenAs65535)
{
    const PacketPacker above(65536);
    EXPECT_EQ(above.getPacketSizeRemaining(), 65527u);
    const PacketPacker farAbove(0xFFFFFFFF);
    EXPECT_EQ(farAbove.getPacketSizeRemaining(), 65527u);
}

TEST(PacketPacker, payload65524_fillsTheLargestPacket)
{
    PacketPacker packer(65535);
    EXPECT_EQ(add(packer, Bytes(65525, 1), 3), 0u);
    EXPECT_EQ(add(packer, Bytes(65524, 1), 3), 65527u);
    const Bytes packet = packetOf(packer);
    ASSERT_EQ(packet.size(), 65535u);
    EXPECT_EQ(Bytes(packet.begin(), packet.begin() + 11), (Bytes{0xFF, 0xFF, 1, 0, 0, 0, 0, 0, 3, 0xF4, 0xFF}));
}

TEST(PacketPacker, payloadAbove65535_isNotTaken)
{
    PacketPacker packer(65535);
    // Cut to 16 bits this would be an empty record.
    EXPECT_EQ(add(packer, Bytes(65536, 1), 3), 0u);
    // With three bytes of framing this wraps to a size that fits.
    EXPECT_EQ(packer.addStructData("", 0xFFFFFFFE, typeOf(3)), 0u);
    EXPECT_EQ(packetOf(packer), (Bytes{8, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(PacketPacker, fourthArgument_isIgnored)
{
    PacketPacker packer(100);
    const std::uint8_t payload[] = {0x77};
    EXPECT_EQ(packer.addStructData(payload, 1, typeOf(5), 1234), 4u);
    EXPECT_EQ(packetOf(packer), (Bytes{12, 0, 1, 0, 0, 0, 0, 0, 5, 1, 0, 0x77}));
}

TEST(PacketPacker, clearData_emptiesThePacketAndKeepsTheLimit)
{
    PacketPacker packer(100);
    add(packer, {1, 2, 3}, 5);
    packer.clearData();
    EXPECT_EQ(packetOf(packer), (Bytes{8, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(packer.getPacketCount(), 0u);
    EXPECT_EQ(packer.getPacketSizeRemaining(), 92u);
}

TEST(PacketPacker, limitBelowWhatIsPacked_keepsThePacketAndTakesNoMore)
{
    PacketPacker packer(100);
    add(packer, Bytes(20, 0x42), 5);
    const Bytes before = packetOf(packer);
    packer.setMaxPacketSize(30);
    EXPECT_EQ(packetOf(packer), before);
    EXPECT_EQ(packer.getPacketSizeRemaining(), 0u);
    EXPECT_EQ(packer.addStructData(nullptr, 0, typeOf(1)), 0u);
}

TEST(PacketPacker, raisedLimit_holdsForWhatIsAddedNext)
{
    PacketPacker packer(12);
    EXPECT_EQ(add(packer, {1, 2}, 5), 0u);
    packer.setMaxPacketSize(13);
    EXPECT_EQ(add(packer, {1, 2}, 5), 5u);
    EXPECT_EQ(packer.getPacketSizeRemaining(), 0u);
}

TEST(PacketPacker, buffer_neverMoves)
{
    PacketPacker packer(64);
    const unsigned char* const buffer = packer.getPacket();
    packer.setMaxPacketSize(65535);
    add(packer, Bytes(60000, 1), 3);
    EXPECT_EQ(packer.getPacket(), buffer);
    packer.clearData();
    EXPECT_EQ(packer.getPacket(), buffer);
    packer.setMaxPacketSize(10);
    EXPECT_EQ(packer.getPacket(), buffer);
}

TEST(PacketPacker, addData_handsEachRecordToTheVirtualOperation)
{
    RecordingPacker packer;
    packer.addData(ReqDeviceInfo{1});
    FirmwareUpgradeRequest request{};
    request.mainSize = 0x11223344;
    packer.addData(request);
    FirmwareData chunk{};
    chunk.board = FirmwareData::ServoMcu;
    chunk.checksum = 0xCAFEF00D;
    packer.addData(chunk);

    ASSERT_EQ(packer.m_records.size(), 3u);
    EXPECT_EQ(packer.m_records[0], (PackedRecord{1, {1, 0, 0, 0}}));
    EXPECT_EQ(packer.m_records[1].type, 41);
    ASSERT_EQ(packer.m_records[1].payload.size(), 34u);
    EXPECT_EQ(packer.m_records[1].payload[10], 0x44);
    EXPECT_EQ(packer.m_records[1].payload[13], 0x11);
    EXPECT_EQ(packer.m_records[2].type, 44);
    ASSERT_EQ(packer.m_records[2].payload.size(), 4109u);
    EXPECT_EQ(packer.m_records[2].payload[0], 0x0F);
    EXPECT_EQ(packer.m_records[2].payload[4105], 0x0D);
    EXPECT_EQ(packer.m_records[2].payload[4108], 0xCA);
    EXPECT_EQ(packer.getPacketCount(), 0u);
}

TEST(PacketPacker, addDataOnTheBase_goesIntoThePacket)
{
    PacketPacker packer(100);
    packer.addData(ReqDeviceInfo{1});
    EXPECT_EQ(packetOf(packer), (Bytes{15, 0, 1, 0, 0, 0, 0, 0, 1, 4, 0, 1, 0, 0, 0}));
}

TEST(PacketPacker, checksumOfRequest_isSumOfThePrecedingBytes)
{
    PacketPacker packer(100);
    FirmwareUpgradeRequest request{};
    EXPECT_EQ(packer.generateChecksum(request), 0u);
    request.word = FirmwareUpgradeRequest::expectedWord; // 0x30
    request.mainSize = 0x01020304;                       // 1 + 2 + 3 + 4
    request.servoCrc = 0xFF0000FF;                       // 2 x 255
    EXPECT_EQ(packer.generateChecksum(request), 48u + 10u + 510u);
    request.checksum = 0xFFFFFFFF; // its own field does not count
    EXPECT_EQ(packer.generateChecksum(request), 568u);
}

TEST(PacketPacker, checksumOfChunk_isSumOfThePrecedingBytes)
{
    PacketPacker packer(100);
    FirmwareData chunk{};
    std::memset(chunk.data, 0xFF, sizeof chunk.data); // 4096 x 255 = 1,044,480
    chunk.board = FirmwareData::ServoMcu;             // 15
    chunk.address = 0x00010000;                       // 1
    chunk.length = 0x1000;                            // 16
    EXPECT_EQ(packer.generateChecksum(chunk), 1044480u + 15u + 1u + 16u);
    chunk.checksum = 0xFFFFFFFF;
    EXPECT_EQ(packer.generateChecksum(chunk), 1044512u);
}

TEST(PacketPacker, checksumOfChunk_countsBytesPastItsLength)
{
    PacketPacker packer(100);
    FirmwareData chunk{};
    chunk.length = 1;
    chunk.data[4095] = 7;
    EXPECT_EQ(packer.generateChecksum(chunk), 8u);
}

TEST(PacketPacker, crc32OfTheCheckString_isTheCheckValue)
{
    PacketPacker packer(100);
    const std::string text = "123456789";
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    EXPECT_EQ(packer.calculateCrc32(bytes, 9, 0), 0xCBF43926u);
}

TEST(PacketPacker, crc32InTwoParts_continues)
{
    PacketPacker packer(100);
    const std::string text = "123456789";
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const std::uint32_t begin = packer.calculateCrc32(bytes, 4, 0);
    EXPECT_NE(begin, 0u);
    EXPECT_EQ(packer.calculateCrc32(bytes + 4, 5, begin), 0xCBF43926u);
}

TEST(PacketPacker, crc32OfNothing_isTheInitialValue)
{
    PacketPacker packer(100);
    EXPECT_EQ(packer.calculateCrc32(nullptr, 0, 0), 0u);
    EXPECT_EQ(packer.calculateCrc32(nullptr, 0, 0x12345678), 0x12345678u);
    const unsigned char byte = 0;
    EXPECT_EQ(packer.calculateCrc32(&byte, 0, 0x12345678), 0x12345678u);
}

TEST(PacketPacker, state_standsWhereDerivedCodeExpectsIt)
{
    const StateOfPacker packer;
    constexpr bool is32Bit = sizeof(void*) == 4;
    EXPECT_EQ(packer.offsetOfPacket(), is32Bit ? 4 : 8); // behind the virtual table's pointer
    EXPECT_EQ(packer.offsetOfWritePosition(), is32Bit ? 8 : 16);
    EXPECT_EQ(packer.offsetOfMaxPacketSize(), is32Bit ? 12 : 20);
    EXPECT_EQ(packer.offsetOfHeader(), is32Bit ? 14 : 22);
}

TEST(PacketPacker, state_followsEachRecord)
{
    StateOfPacker packer;
    EXPECT_EQ(packer.packetMember(), packer.getPacket());
    EXPECT_EQ(packer.maxPacketSize(), 1000u);
    add(packer, {1, 2, 3}, 5);
    EXPECT_EQ(packer.writePosition(), 14u);
    EXPECT_EQ(std::uint16_t{packer.header().length}, 14u);
    EXPECT_EQ(std::uint16_t{packer.header().count}, 1u);
    EXPECT_EQ(std::uint32_t{packer.header().deviceId}, 0u);
    packer.clearData();
    EXPECT_EQ(packer.writePosition(), 8u);
    EXPECT_EQ(std::uint16_t{packer.header().count}, 0u);
}

} // namespace Vantor
