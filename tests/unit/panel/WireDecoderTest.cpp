#include "simulator/panel/WireDecoder.h"
#include "tests/support/Random.h"
#include "tests/support/Seeds.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t limit = 1100;

// Header 15 bytes, 2 records; type 5 with AA BB CC would be 14: here 5 with AA, and 45 empty.
const Bytes twoRecords{15, 0, 2, 0, 0, 0, 0, 0, 5, 1, 0, 0xAA, 45, 0, 0};
const Bytes oneRecord{13, 0, 1, 0, 0, 0, 0, 0, 255, 2, 0, 1, 2};

std::string furtherPacket(std::size_t offset)
{
    return "byte " + std::to_string(offset) + ": a further packet, a transfer carries one";
}

std::size_t recordsIn(const WireDecoder::Result& result)
{
    std::size_t records = 0;
    for (const auto& packet : result.packets)
        records += packet.records.size();
    return records;
}

TEST(WireDecoder, wholePacket_headerAndRecordsInOrder)
{
    const auto result = WireDecoder::decode(twoRecords, limit);
    EXPECT_THAT(result.violations, IsEmpty());
    ASSERT_EQ(result.packets.size(), 1u);
    const auto& packet = result.packets[0];
    EXPECT_EQ(packet.header.length, 15);
    EXPECT_EQ(packet.header.count, 2);
    EXPECT_EQ(packet.header.deviceId, 0u);
    ASSERT_EQ(packet.records.size(), 2u);
    EXPECT_EQ(packet.records[0].type, static_cast<PacketType>(5));
    EXPECT_THAT(packet.records[0].payload, ElementsAre(0xAA));
    EXPECT_EQ(packet.records[1].type, static_cast<PacketType>(45));
    EXPECT_THAT(packet.records[1].payload, IsEmpty());
}

TEST(WireDecoder, unknownType_kept)
{
    const auto result = WireDecoder::decode(oneRecord, limit);
    EXPECT_THAT(result.violations, IsEmpty());
    ASSERT_EQ(recordsIn(result), 1u);
    EXPECT_EQ(result.packets[0].records[0].type, static_cast<PacketType>(255));
    EXPECT_THAT(result.packets[0].records[0].payload, ElementsAre(1, 2));
}

TEST(WireDecoder, anyBitOfTheDeviceId_violation)
{
    for (std::size_t byte = 4; byte < 8; ++byte) {
        Bytes packet = oneRecord;
        packet[byte] = 1;
        const std::string id = std::to_string(1u << 8 * (byte - 4));
        EXPECT_THAT(WireDecoder::decode(packet, limit).violations,
                    ElementsAre("byte 4: device id " + id + ", a host sends 0"));
    }
}

TEST(WireDecoder, encodedSliceFirst_fine_behindOthers_violation)
{
    // 18 = 8 + 3 + 1 + 3 + 3: types 46 with AA, 5 without payload, 46 without payload.
    Bytes packet{18, 0, 3, 0, 0, 0, 0, 0, 46, 1, 0, 0xAA, 5, 0, 0, 45, 0, 0};
    EXPECT_THAT(WireDecoder::decode(packet, limit).violations, IsEmpty());

    packet[15] = 46;
    const auto two = WireDecoder::decode(packet, limit);
    EXPECT_THAT(two.violations, ElementsAre("byte 15: encoded slice behind 2 records, it is a packet's first"));
    EXPECT_EQ(recordsIn(two), 3u);

    packet[8] = 5;
    packet[12] = 46;
    EXPECT_THAT(WireDecoder::decode(packet, limit).violations,
                ElementsAre("byte 12: encoded slice behind 1 record, it is a packet's first",
                            "byte 15: encoded slice behind 2 records, it is a packet's first"));
}

TEST(WireDecoder, packetsBackToBack_violationsAndAllDecoded)
{
    const auto result = WireDecoder::decode(joined({twoRecords, oneRecord, twoRecords}), limit);
    EXPECT_THAT(result.violations, ElementsAre(furtherPacket(15), furtherPacket(28)));
    EXPECT_EQ(result.packets.size(), 3u);
    EXPECT_EQ(recordsIn(result), 5u);
}

TEST(WireDecoder, noBytes_violation)
{
    const auto result = WireDecoder::decode({}, limit);
    EXPECT_THAT(result.violations, ElementsAre("byte 0: transfer without bytes"));
    EXPECT_THAT(result.packets, IsEmpty());
}

TEST(WireDecoder, emptyPacket_violation)
{
    const auto result = WireDecoder::decode({8, 0, 0, 0, 0, 0, 0, 0}, limit);
    EXPECT_THAT(result.violations, ElementsAre("byte 0: packet without records"));
    EXPECT_EQ(result.packets.size(), 1u);
}

TEST(WireDecoder, countTooHighOrTooLow_violationAndRecordsKept)
{
    Bytes packet = twoRecords;
    packet[2] = 3;
    auto result = WireDecoder::decode(packet, limit);
    EXPECT_THAT(result.violations, ElementsAre("byte 0: packet counts 3 records, it holds 2"));
    EXPECT_EQ(recordsIn(result), 2u);

    packet[2] = 1;
    result = WireDecoder::decode(packet, limit);
    EXPECT_THAT(result.violations, ElementsAre("byte 0: packet counts 1 record, it holds 2"));
    EXPECT_EQ(recordsIn(result), 2u);

    packet[2] = 0;
    result = WireDecoder::decode(packet, limit);
    EXPECT_THAT(result.violations, ElementsAre("byte 0: packet counts 0 records, it holds 2"));

    // The count is 16 bits: 258 is not 2.
    packet[2] = 2;
    packet[3] = 1;
    result = WireDecoder::decode(packet, limit);
    EXPECT_THAT(result.violations, ElementsAre("byte 0: packet counts 258 records, it holds 2"));

    result = WireDecoder::decode({8, 0, 1, 0, 0, 0, 0, 0}, limit);
    EXPECT_THAT(result.violations, ElementsAre("byte 0: packet counts 1 record, it holds 0"));
}

TEST(WireDecoder, recordBeyondItsPacket_violationAndNextPacketStillDecoded)
{
    Bytes packet = twoRecords;
    packet[13] = 1; // the second record's payload lies behind the packet
    const auto result = WireDecoder::decode(joined({packet, oneRecord}), limit);
    EXPECT_THAT(result.violations, ElementsAre("byte 12: record of type 45 has 1 byte of payload, its packet of 15 "
                                               "bytes has 0 left",
                                               furtherPacket(15)));
    ASSERT_EQ(result.packets.size(), 2u);
    EXPECT_EQ(result.packets[0].records.size(), 1u);
    EXPECT_EQ(result.packets[1].records.size(), 1u);
}

TEST(WireDecoder, recordHeaderBeyondItsPacket_violation)
{
    const Bytes packet{14, 0, 2, 0, 0, 0, 0, 0, 5, 1, 0, 0xAA, 45, 0};
    const auto result = WireDecoder::decode(packet, limit);
    EXPECT_THAT(result.violations,
                ElementsAre("byte 12: 2 bytes left in the packet of 14 bytes, a record header has 3"));
    EXPECT_EQ(recordsIn(result), 1u);
}

TEST(WireDecoder, lengthBelowHeader_restOfTransferIsLost)
{
    for (std::uint8_t length = 0; length < 8; ++length) {
        Bytes packet = twoRecords;
        packet[0] = length;
        const auto result = WireDecoder::decode(joined({oneRecord, packet, oneRecord}), limit);
        EXPECT_THAT(result.violations, ElementsAre("byte 13: packet length " + std::to_string(length) +
                                                   " is less than its header of 8 bytes"));
        EXPECT_EQ(result.packets.size(), 1u);
    }
}

TEST(WireDecoder, bytesBehindALostBoundary_ignoredToTheTransfersEnd)
{
    WireDecoder decoder(limit);
    const Bytes bad{7, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(decoder.feed(bad.data(), bad.size()).violations.size(), 1u);
    EXPECT_THAT(decoder.feed(oneRecord.data(), oneRecord.size()).packets, IsEmpty());
    EXPECT_THAT(decoder.endTransfer().violations, IsEmpty());
    EXPECT_EQ(decoder.feed(oneRecord.data(), oneRecord.size()).packets.size(), 1u);
}

TEST(WireDecoder, transferEndsInsidePacket_violationAndPacketDropped)
{
    Bytes cut = twoRecords;
    cut.pop_back();
    const auto result = WireDecoder::decode(joined({oneRecord, cut}), limit);
    EXPECT_THAT(result.violations, ElementsAre("byte 13: packet of 15 bytes, the transfer ends after 14"));
    EXPECT_EQ(result.packets.size(), 1u);
}

TEST(WireDecoder, bytesBehindLastPacket_violation)
{
    const auto result = WireDecoder::decode(joined({twoRecords, {0}}), limit);
    EXPECT_THAT(result.violations, ElementsAre("byte 15: 1 byte behind the last packet, a packet header has 8"));
    EXPECT_EQ(result.packets.size(), 1u);
}

TEST(WireDecoder, packetOfTheLimit_fine_oneByteMore_violation)
{
    // 8 header + 3 record header + 1089 payload bytes = 1100.
    Bytes packet{0x4C, 0x04, 1, 0, 0, 0, 0, 0, 9, 0x41, 0x04};
    packet.resize(1100);
    EXPECT_THAT(WireDecoder::decode(packet, limit).violations, IsEmpty());

    packet[0] = 0x4D;
    packet[9] = 0x42;
    packet.resize(1101);
    const auto result = WireDecoder::decode(packet, limit);
    EXPECT_THAT(result.violations, ElementsAre("byte 0: packet of 1101 bytes, the limit is 1100"));
    EXPECT_EQ(recordsIn(result), 1u);
}

TEST(WireDecoder, largestPacket_decoded)
{
    // 65535 = 8 + 3 + 65524 (0xFFF4).
    Bytes packet{0xFF, 0xFF, 1, 0, 0, 0, 0, 0, 9, 0xF4, 0xFF};
    packet.resize(65535, 0x5A);
    const auto result = WireDecoder::decode(packet, 65535);
    EXPECT_THAT(result.violations, IsEmpty());
    ASSERT_EQ(recordsIn(result), 1u);
    EXPECT_EQ(result.packets[0].records[0].payload, Bytes(65524, 0x5A));
}

TEST(WireDecoder, everyTruncation_oneViolationAndOnlyWholePackets)
{
    const Bytes whole = joined({twoRecords, oneRecord}); // packets end at 15 and 28
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        const auto result = WireDecoder::decode(cut, limit);
        // What is left over, from 28 on the second packet.
        EXPECT_EQ(result.violations.size(), size == 15 ? 0u : 1u) << size;
        EXPECT_EQ(result.packets.size(), size == 28 ? 2u : size >= 15 ? 1u : 0u) << size;
    }
}

TEST(WireDecoder, everySplitIntoTwo_sameAsWhole)
{
    Bytes bad = oneRecord;
    bad[2] = 9;
    const Bytes whole = joined({twoRecords, bad, twoRecords, {1, 2, 3}});
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        WireDecoder decoder(limit);
        const auto first = decoder.feed(whole.data(), size);
        const auto second = decoder.feed(whole.data() + size, whole.size() - size);
        const auto end = decoder.endTransfer();
        EXPECT_EQ(recordsIn(first) + recordsIn(second), 5u) << size;
        std::vector<std::string> violations = first.violations;
        violations.insert(violations.end(), second.violations.begin(), second.violations.end());
        EXPECT_THAT(violations,
                    ElementsAre(furtherPacket(15), "byte 15: packet counts 9 records, it holds 1", furtherPacket(28)))
            << size;
        EXPECT_THAT(end.violations, ElementsAre("byte 43: 3 bytes behind the last packet, a packet header has 8"))
            << size;
    }
}

TEST(WireDecoder, endTransfer_nextBytesBeginAnother)
{
    WireDecoder decoder(limit);
    decoder.feed(twoRecords.data(), 5);
    EXPECT_THAT(decoder.endTransfer().violations, ElementsAre("byte 0: 5 bytes, a packet header has 8"));
    const auto result = decoder.feed(oneRecord.data(), oneRecord.size());
    EXPECT_EQ(recordsIn(result), 1u);
    EXPECT_THAT(decoder.endTransfer().violations, IsEmpty());
}

TEST(WireDecoder, dropTransfer_silentAndFresh)
{
    WireDecoder decoder(limit);
    decoder.feed(twoRecords.data(), 14);
    decoder.dropTransfer();
    EXPECT_EQ(recordsIn(decoder.feed(oneRecord.data(), oneRecord.size())), 1u);
    EXPECT_THAT(decoder.endTransfer().violations, IsEmpty());

    const Bytes bad{7, 0, 0, 0, 0, 0, 0, 0};
    decoder.feed(bad.data(), bad.size());
    decoder.dropTransfer();
    EXPECT_EQ(recordsIn(decoder.feed(oneRecord.data(), oneRecord.size())), 1u);
}

TEST(WireDecoder, everyByteChanged_neverReadsBeyondAndNeverMisses)
{
    // Whatever one byte of the frame becomes: no crash, and payloads never exceed what came in.
    const Bytes whole = twoRecords;
    for (std::size_t i = 0; i < whole.size(); ++i) {
        for (unsigned int value = 0; value < 256; ++value) {
            Bytes hostile = whole;
            hostile[i] = static_cast<std::uint8_t>(value);
            const auto result = WireDecoder::decode(hostile, limit);
            std::size_t payload = 0;
            for (const auto& packet : result.packets)
                for (const auto& record : packet.records)
                    payload += record.payload.size();
            EXPECT_LE(payload, whole.size());
            const bool isFrame = i < 8 || i == 9 || i == 10 || i == 13 || i == 14 || (i == 12 && value == 46);
            EXPECT_EQ(result.violations.empty(), !isFrame || hostile == whole) << "byte " << i << " = " << value;
        }
    }
}

TEST(WireDecoder, noiseOfEveryLength_survives)
{
    runSeeds(1, [](unsigned int seed) {
        Random noise(seed);
        for (std::size_t size = 1; size < 600; ++size) {
            // On the heap with its exact size, so that a sanitizer sees the first byte too many.
            Bytes bytes(size);
            for (auto& byte : bytes)
                byte = static_cast<std::uint8_t>(noise.below(24));
            const auto result = WireDecoder::decode(bytes, limit);
            EXPECT_FALSE(result.violations.empty() && result.packets.empty()) << size;
        }
    });
}

} // namespace
} // namespace Vantor
