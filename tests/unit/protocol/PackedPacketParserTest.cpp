#include "protocol/PackedPacketParser.h"

#include "tests/support/PackedBytes.h"

#include <algorithm>
#include <memory>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

struct Parsed {
    unsigned short deviceId;
    PackedRecord record;
    const std::uint8_t* address; // where the payload stood during the call
    Bytes padding;               // of a payload shorter than the union
};

class Listener : public PackedPacketParser::Observer {
public:
    void handleParsedPacket(unsigned short deviceId, const PacketType& type, const DataPacketUnion& data,
                            unsigned int size) override
    {
        const std::uint8_t* const bytes = payloadOf(data);
        Parsed parsed{deviceId, {static_cast<int>(type), Bytes(bytes, bytes + size)}, bytes, {}};
        if (size < sizeof data)
            parsed.padding.assign(bytes + size, bytes + sizeof data);
        m_parsed.push_back(parsed);
    }

    std::vector<PackedRecord> records() const
    {
        std::vector<PackedRecord> records;
        for (const Parsed& parsed : m_parsed)
            records.push_back(parsed.record);
        return records;
    }

    std::vector<Parsed> m_parsed;
};

struct Fixture {
    Listener listener;
    PackedPacketParser parser{&listener};

    // From memory of exactly this size, so that a sanitizer sees a read beyond it.
    void parse(const Bytes& buffer)
    {
        const std::unique_ptr<unsigned char[]> copy(new unsigned char[buffer.size()]);
        std::copy(buffer.begin(), buffer.end(), copy.get());
        parser.parse(copy.get(), static_cast<unsigned int>(buffer.size()));
    }
};

Bytes counted(std::size_t size)
{
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>(i + 1);
    return bytes;
}

// One packet of three records; the second's payload is `counted(size)`.
Bytes packetAround(std::size_t before, std::size_t size, std::size_t behind)
{
    const auto low = [](std::size_t value) { return static_cast<std::uint8_t>(value % 256); };
    const auto high = [](std::size_t value) { return static_cast<std::uint8_t>(value / 256); };
    const std::size_t length = 8 + 3 + before + 3 + size + 3 + behind;
    return joined({{low(length), high(length), 3, 0, 0, 0, 0, 0},
                   {5, low(before), 0},
                   Bytes(before, 0xEE),
                   {6, low(size), 0},
                   counted(size),
                   {7, low(behind), 0},
                   Bytes(behind, 0xEE)});
}

const Bytes twoRecords = {18, 0, 2, 0, 0x34, 0x12, 0, 0, 5, 2, 0, 0xA1, 0xA2, 6, 2, 0, 0xB1, 0xB2};
const Bytes oneRecord = {12, 0, 1, 0, 0x78, 0x56, 0, 0, 7, 1, 0, 0xC1};

} // namespace

TEST(PackedPacketParser, oneRecord_isDelivered)
{
    Fixture fixture;
    fixture.parse({15, 0, 1, 0, 0x34, 0x12, 0, 0, 5, 4, 0, 1, 2, 3, 4});
    ASSERT_EQ(fixture.listener.m_parsed.size(), 1u);
    EXPECT_EQ(fixture.listener.m_parsed[0].deviceId, 0x1234);
    EXPECT_EQ(fixture.listener.m_parsed[0].record, (PackedRecord{5, {1, 2, 3, 4}}));
    EXPECT_EQ(fixture.parser.getRejectedCount(), 0u);
}

TEST(PackedPacketParser, recordsOfAPacket_comeInOrder)
{
    Fixture fixture;
    fixture.parse(twoRecords);
    EXPECT_EQ(fixture.listener.records(), (std::vector<PackedRecord>{{5, {0xA1, 0xA2}}, {6, {0xB1, 0xB2}}}));
    EXPECT_EQ(fixture.parser.getRejectedCount(), 0u);
}

TEST(PackedPacketParser, severalPackets_comeInOrderUnderTheFirstDeviceId)
{
    Fixture fixture;
    fixture.parse(joined({twoRecords, oneRecord}));
    EXPECT_EQ(fixture.listener.records(),
              (std::vector<PackedRecord>{{5, {0xA1, 0xA2}}, {6, {0xB1, 0xB2}}, {7, {0xC1}}}));
    for (const Parsed& parsed : fixture.listener.m_parsed)
        EXPECT_EQ(parsed.deviceId, 0x1234);
    EXPECT_EQ(fixture.parser.getRejectedCount(), 0u);
}

TEST(PackedPacketParser, deviceId_isTheLowHalfOfItsField)
{
    Fixture fixture;
    fixture.parse({11, 0, 1, 0, 0x04, 0x01, 0xCD, 0xAB, 5, 0, 0});
    ASSERT_EQ(fixture.listener.m_parsed.size(), 1u);
    EXPECT_EQ(fixture.listener.m_parsed[0].deviceId, 0x0104);
}

TEST(PackedPacketParser, nextBuffer_hasItsOwnDeviceId)
{
    Fixture fixture;
    fixture.parse(twoRecords);
    fixture.parse(oneRecord);
    ASSERT_EQ(fixture.listener.m_parsed.size(), 3u);
    EXPECT_EQ(fixture.listener.m_parsed[2].deviceId, 0x5678);
}

TEST(PackedPacketParser, count_isAdvisory)
{
    Fixture fixture;
    fixture.parse({12, 0, 0, 0, 0, 0, 0, 0, 7, 1, 0, 0xC1});
    fixture.parse({12, 0, 9, 9, 0, 0, 0, 0, 7, 1, 0, 0xC1});
    EXPECT_EQ(fixture.listener.records(), (std::vector<PackedRecord>{{7, {0xC1}}, {7, {0xC1}}}));
    EXPECT_EQ(fixture.parser.getRejectedCount(), 0u);
}

TEST(PackedPacketParser, packetWithoutRecords_isNothing)
{
    Fixture fixture;
    fixture.parse(joined({{8, 0, 0, 0, 0, 0, 0, 0}, oneRecord}));
    EXPECT_EQ(fixture.listener.records(), (std::vector<PackedRecord>{{7, {0xC1}}}));
    EXPECT_EQ(fixture.listener.m_parsed[0].deviceId, 0);
    EXPECT_EQ(fixture.parser.getRejectedCount(), 0u);
}

TEST(PackedPacketParser, typeOutsideTheAssignedOnes_isDelivered)
{
    Fixture fixture;
    fixture.parse({14, 0, 2, 0, 0, 0, 0, 0, 47, 0, 0, 255, 0, 0});
    EXPECT_EQ(fixture.listener.records(), (std::vector<PackedRecord>{{47, {}}, {255, {}}}));
}

TEST(PackedPacketParser, emptyPayload_comesAsAUnionOfZeros)
{
    Fixture fixture;
    fixture.parse({14, 0, 2, 0, 0, 0, 0, 0, 5, 0, 0, 6, 0, 0});
    ASSERT_EQ(fixture.listener.m_parsed.size(), 2u);
    EXPECT_EQ(fixture.listener.m_parsed[0].padding, Bytes(83, 0));
}

TEST(PackedPacketParser, shortPayload_isFollowedByZeros)
{
    Fixture fixture;
    // What follows the first payload in the buffer must not show.
    fixture.parse(joined({{114, 0, 2, 0, 0, 0, 0, 0, 5, 3, 0, 1, 2, 3, 6, 97, 0}, Bytes(97, 0xEE)}));
    ASSERT_EQ(fixture.listener.m_parsed.size(), 2u);
    EXPECT_EQ(fixture.listener.m_parsed[0].record.payload, (Bytes{1, 2, 3}));
    EXPECT_EQ(fixture.listener.m_parsed[0].padding, Bytes(80, 0));
}

TEST(PackedPacketParser, payloadOneByteShortOfTheUnion_hasOneZero)
{
    Fixture fixture;
    fixture.parse(joined({{93, 0, 1, 0, 0, 0, 0, 0, 0, 82, 0}, Bytes(82, 0x11)}));
    ASSERT_EQ(fixture.listener.m_parsed.size(), 1u);
    EXPECT_EQ(fixture.listener.m_parsed[0].record.payload, Bytes(82, 0x11));
    EXPECT_EQ(fixture.listener.m_parsed[0].padding, (Bytes{0}));
}

TEST(PackedPacketParser, payloadOfTheUnionsSize_isDeliveredWhole)
{
    Fixture fixture;
    fixture.parse(joined({{94, 0, 1, 0, 0, 0, 0, 0, 0, 83, 0}, Bytes(83, 0x11)}));
    ASSERT_EQ(fixture.listener.m_parsed.size(), 1u);
    EXPECT_EQ(fixture.listener.m_parsed[0].record.payload, Bytes(83, 0x11));
}

// At the ends of the buffer a sanitizer sees any byte that is read beyond it.
TEST(PackedPacketParser, payload_isAloneWhereverItStands)
{
    for (const std::size_t size : {0u, 1u, 2u, 8u, 15u, 16u, 64u, 81u, 82u, 83u, 84u}) {
        for (std::size_t distance = 0; distance <= 90; ++distance) {
            for (const bool fromTheBegin : {true, false}) {
                SCOPED_TRACE(testing::Message()
                             << size << " bytes, " << distance << (fromTheBegin ? " before" : " behind"));
                Fixture fixture;
                fixture.parse(packetAround(fromTheBegin ? distance : 0, size, fromTheBegin ? 0 : distance));
                ASSERT_EQ(fixture.listener.m_parsed.size(), 3u);
                const Parsed& parsed = fixture.listener.m_parsed[1];
                ASSERT_EQ(parsed.record, (PackedRecord{6, counted(size)}));
                ASSERT_EQ(parsed.padding, Bytes(size < 83 ? 83 - size : 0, 0));
            }
        }
    }
}

TEST(PackedPacketParser, loneRecordOfAnySize_isFollowedByZeros)
{
    for (std::uint8_t size = 0; size <= 84; ++size) {
        SCOPED_TRACE(static_cast<int>(size));
        Fixture fixture;
        fixture.parse(joined({{static_cast<std::uint8_t>(11 + size), 0, 1, 0, 0, 0, 0, 0, 5, size, 0}, counted(size)}));
        ASSERT_EQ(fixture.listener.m_parsed.size(), 1u);
        EXPECT_EQ(fixture.listener.m_parsed[0].record.payload, counted(size));
        EXPECT_EQ(fixture.listener.m_parsed[0].padding, Bytes(size < 83 ? 83u - size : 0u, 0));
    }
}

TEST(PackedPacketParser, payloadLongerThanTheUnion_isAViewOfTheBuffer)
{
    Fixture fixture;
    Bytes buffer = joined({{0x37, 0x01, 1, 0, 0, 0, 0, 0, 9, 0x2C, 0x01}, Bytes(300, 0x33)});
    buffer.back() = 0x44;
    fixture.parser.parse(buffer.data(), 311);
    ASSERT_EQ(fixture.listener.m_parsed.size(), 1u);
    EXPECT_EQ(fixture.listener.m_parsed[0].address, &buffer[11]);
    EXPECT_EQ(fixture.listener.m_parsed[0].record.payload.size(), 300u);
    EXPECT_EQ(fixture.listener.m_parsed[0].record.payload.back(), 0x44);
}

TEST(PackedPacketParser, recordBeyondItsPacket_isRejectedWithWhatFollows)
{
    Fixture fixture;
    // The second record's last byte lies in the next packet.
    fixture.parse(joined({{16, 0, 2, 0, 0, 0, 0, 0, 5, 1, 0, 0xA1, 6, 2, 0, 0xB1}, oneRecord}));
    EXPECT_EQ(fixture.listener.records(), (std::vector<PackedRecord>{{5, {0xA1}}}));
    EXPECT_EQ(fixture.parser.getRejectedCount(), 1u);
}

TEST(PackedPacketParser, recordHeaderBeyondItsPacket_isRejected)
{
    for (const std::uint8_t length : Bytes{9, 10}) {
        Fixture fixture;
        fixture.parse({length, 0, 1, 0, 0, 0, 0, 0, 5, 0, 0});
        EXPECT_TRUE(fixture.listener.m_parsed.empty());
        EXPECT_EQ(fixture.parser.getRejectedCount(), 1u);
    }
}

TEST(PackedPacketParser, packetLengthBelow8_isRejected)
{
    for (const std::uint8_t length : Bytes{0, 1, 7}) {
        Fixture fixture;
        fixture.parse({length, 0, 1, 0, 0, 0, 0, 0, 7, 1, 0, 0xC1});
        EXPECT_TRUE(fixture.listener.m_parsed.empty());
        EXPECT_EQ(fixture.parser.getRejectedCount(), 1u);
    }
}

TEST(PackedPacketParser, packetLengthBelow8_isNotSkippedEither)
{
    Fixture fixture;
    fixture.parse(joined({{4, 0, 1, 0}, oneRecord})); // a good packet at the length it claims
    EXPECT_TRUE(fixture.listener.m_parsed.empty());
    EXPECT_EQ(fixture.parser.getRejectedCount(), 1u);
}

TEST(PackedPacketParser, packetLengthBeyondTheBuffer_isRejected)
{
    Fixture fixture;
    Bytes beyond = oneRecord;
    beyond[0] = 13;
    fixture.parse(joined({twoRecords, beyond}));
    EXPECT_EQ(fixture.listener.m_parsed.size(), 2u);
    EXPECT_EQ(fixture.parser.getRejectedCount(), 1u);
}

TEST(PackedPacketParser, packetLengthUsesBothBytes)
{
    Fixture fixture;
    Bytes beyond = oneRecord;
    beyond[1] = 1; // 268
    fixture.parse(beyond);
    EXPECT_TRUE(fixture.listener.m_parsed.empty());
    EXPECT_EQ(fixture.parser.getRejectedCount(), 1u);
}

TEST(PackedPacketParser, restTooShortForAHeader_isRejected)
{
    Fixture fixture;
    fixture.parse(joined({oneRecord, Bytes(7, 0)}));
    EXPECT_EQ(fixture.listener.m_parsed.size(), 1u);
    EXPECT_EQ(fixture.parser.getRejectedCount(), 1u);
}

TEST(PackedPacketParser, everyTruncation_deliversWholePacketsOnly)
{
    const Bytes good = joined({twoRecords, oneRecord});
    for (std::size_t length = 0; length <= good.size(); ++length) {
        SCOPED_TRACE(length);
        Fixture fixture;
        fixture.parse(Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(length)));
        const std::size_t delivered = length == 30 ? 3 : length >= 18 ? 2 : 0;
        const bool whole = length == 0 || length == 18 || length == 30;
        EXPECT_EQ(fixture.listener.m_parsed.size(), delivered);
        EXPECT_EQ(fixture.parser.getRejectedCount(), whole ? 0u : 1u);
    }
}

TEST(PackedPacketParser, everySingleByteValue_staysInsideTheBuffer)
{
    const Bytes good = joined({twoRecords, oneRecord});
    for (std::size_t at = 0; at < good.size(); ++at) {
        for (int value = 0; value < 256; ++value) {
            Fixture fixture;
            Bytes bad = good;
            bad[at] = static_cast<std::uint8_t>(value);
            fixture.parse(bad);
            std::size_t bytes = 0;
            for (const Parsed& parsed : fixture.listener.m_parsed)
                bytes += 3 + parsed.record.payload.size();
            EXPECT_LE(bytes, good.size() - 8);
            EXPECT_LE(fixture.parser.getRejectedCount(), 1u);
        }
    }
}

TEST(PackedPacketParser, rejections_addUpAndDoNotStopTheNextBuffer)
{
    Fixture fixture;
    fixture.parse({1, 2, 3});
    fixture.parse(Bytes(8, 0));
    EXPECT_EQ(fixture.parser.getRejectedCount(), 2u);
    fixture.parse(oneRecord);
    EXPECT_EQ(fixture.listener.records(), (std::vector<PackedRecord>{{7, {0xC1}}}));
    EXPECT_EQ(fixture.parser.getRejectedCount(), 2u);
}

TEST(PackedPacketParser, nothingToParseOrNobodyToTell_isHarmless)
{
    Fixture fixture;
    fixture.parser.parse(nullptr, 0);
    fixture.parser.parse(nullptr, 12);
    Bytes buffer = oneRecord;
    fixture.parser.parse(buffer.data(), 0);
    EXPECT_TRUE(fixture.listener.m_parsed.empty());

    PackedPacketParser deaf(nullptr);
    deaf.parse(buffer.data(), 12);
}

} // namespace Vantor
