#include "libMorvaneHostUsb/PacketQueue.h"

#include "libMorvaneHostUsb/PriorityPacker.h"

#include "tests/support/PackedBytes.h"
#include "tests/support/PrivateMember.h"

#include <gtest/gtest.h>

namespace Vantor {

struct PendingKeys {
    friend auto& reach(PendingKeys, PacketQueue& queue);
};
template struct PrivateMember<PendingKeys, PacketQueue, &PacketQueue::m_pendingKeys>;
struct KeyedData {
    friend auto& reach(KeyedData, PacketQueue& queue);
};
template struct PrivateMember<KeyedData, PacketQueue, &PacketQueue::m_keyedData>;

namespace {

// A queue and a packer that serves as the packet it drains into.
struct Fixture {
    explicit Fixture(unsigned int limit = 8192) : packer(limit) {}

    void queue(int type, const Bytes& payload) { waiting.addStructData(payload, typeOf(type)); }
    void key(int type, unsigned int key, const Bytes& payload) { waiting.addStructData(payload, typeOf(type), key); }

    // Drains into an empty packet.
    bool drain()
    {
        packer.clearData();
        count = 0;
        return waiting.prepareNextPacket(packer, count);
    }

    std::vector<PackedRecord> drained()
    {
        EXPECT_TRUE(drain());
        return recordsOf(packer);
    }

    PacketQueue waiting;
    PriorityPacker packer;
    unsigned int count = 0;
};

using Records = std::vector<PackedRecord>;

constexpr int exemptTypes[] = {8, 19, 20, 24};

bool isExempt(int type)
{
    for (const int exempt : exemptTypes) {
        if (type == exempt)
            return true;
    }
    return false;
}

} // namespace

TEST(PacketQueue, fresh_isEmptyAndDrainsToNothing)
{
    Fixture fixture;
    EXPECT_FALSE(fixture.waiting.hasMoreData());
    EXPECT_TRUE(fixture.drain());
    EXPECT_EQ(fixture.count, 0u);
    EXPECT_EQ(fixture.packer.getPacketCount(), 0u);
}

TEST(PacketQueue, hasMoreData_holdsUntilADrainReturnsTrue)
{
    Fixture fixture;
    fixture.queue(5, {1});
    EXPECT_TRUE(fixture.waiting.hasMoreData());
    fixture.drained();
    EXPECT_FALSE(fixture.waiting.hasMoreData());
    fixture.key(5, 1, {1});
    EXPECT_TRUE(fixture.waiting.hasMoreData());
    fixture.drained();
    EXPECT_FALSE(fixture.waiting.hasMoreData());
}

TEST(PacketQueue, laterKeyedWrite_replacesTheWaitingOne)
{
    Fixture fixture;
    fixture.key(5, 7, {1, 2});
    fixture.key(5, 7, {3});
    EXPECT_EQ(fixture.drained(), (Records{{5, {3}}}));
    EXPECT_EQ(fixture.count, 1u);
    EXPECT_EQ(fixture.drained(), Records{});
}

TEST(PacketQueue, sameKeyOfAnotherType_isAnotherRecord)
{
    Fixture fixture;
    fixture.key(5, 7, {1});
    fixture.key(4, 7, {2});
    EXPECT_EQ(fixture.drained(), (Records{{4, {2}}, {5, {1}}}));
}

TEST(PacketQueue, identicalKeyedWrite_isSentOnceForEveryTypeAndSize)
{
    for (int type = 0; type < 47; ++type) {
        for (const std::size_t size : std::vector<std::size_t>{0, 1, 63, 64, 65}) {
            SCOPED_TRACE(testing::Message() << "type " << type << " size " << size);
            Fixture fixture;
            const Bytes payload(size, 0x5A);
            fixture.key(type, 3, payload);
            fixture.key(type, 3, payload);
            EXPECT_EQ(fixture.drained(), (Records{{type, payload}}));
        }
    }
}

// The bytes are the same either way. What tells a dropped write from a replacing
// one is that it does not make its key pending.
TEST(PacketQueue, identicalKeyedWrite_isDroppedUpTo63BytesUnlessExempt)
{
    for (int type = 0; type < 47; ++type) {
        for (const std::size_t size : std::vector<std::size_t>{1, 63, 64}) {
            SCOPED_TRACE(testing::Message() << "type " << type << " size " << size);
            Fixture fixture;
            const Bytes payload(size, 0x5A);
            fixture.key(type, 3, payload);
            reach(PendingKeys{}, fixture.waiting).clear();
            fixture.key(type, 3, payload);
            EXPECT_EQ(fixture.waiting.hasMoreData(), isExempt(type) || size == 64);
        }
    }
}

TEST(PacketQueue, twoEmptyValues_areIdentical)
{
    Fixture fixture;
    fixture.key(5, 3, {});
    reach(PendingKeys{}, fixture.waiting).clear();
    fixture.key(5, 3, {});
    EXPECT_FALSE(fixture.waiting.hasMoreData());
}

TEST(PacketQueue, emptyValue_isNotIdenticalToNoValue)
{
    Fixture fixture;
    fixture.key(5, 3, {});
    EXPECT_EQ(fixture.drained(), (Records{{5, {}}}));
}

TEST(PacketQueue, valueThatStartsLikeTheWaitingOne_replacesIt)
{
    Fixture fixture;
    fixture.key(5, 3, {1, 2, 3});
    fixture.key(5, 3, {1, 2});
    EXPECT_EQ(fixture.drained(), (Records{{5, {1, 2}}}));
    fixture.key(5, 3, {1, 2});
    fixture.key(5, 3, {1, 2, 3});
    EXPECT_EQ(fixture.drained(), (Records{{5, {1, 2, 3}}}));
}

TEST(PacketQueue, otherValueOfTheSameSize_replacesTheWaitingOne)
{
    Fixture fixture;
    fixture.key(5, 3, {1, 2, 3});
    fixture.key(5, 3, {1, 2, 4});
    EXPECT_EQ(fixture.drained(), (Records{{5, {1, 2, 4}}}));
}

TEST(PacketQueue, valueThatReturnsToAnEarlierOne_isSent)
{
    Fixture fixture;
    fixture.key(5, 3, {1});
    fixture.key(5, 3, {2});
    fixture.key(5, 3, {1});
    EXPECT_EQ(fixture.drained(), (Records{{5, {1}}}));
}

TEST(PacketQueue, valueIdenticalToOneAlreadyPacked_isSentAgain)
{
    Fixture fixture;
    fixture.key(5, 3, {1});
    EXPECT_EQ(fixture.drained(), (Records{{5, {1}}}));
    fixture.key(5, 3, {1});
    EXPECT_EQ(fixture.drained(), (Records{{5, {1}}}));
}

TEST(PacketQueue, queuedWrites_areAllSentInArrivalOrder)
{
    Fixture fixture;
    for (const std::uint8_t value : Bytes{3, 1, 2, 2, 1})
        fixture.queue(5, {value});
    EXPECT_EQ(fixture.drained(), (Records{{5, {3}}, {5, {1}}, {5, {2}}, {5, {2}}, {5, {1}}}));
    EXPECT_EQ(fixture.count, 5u);
}

TEST(PacketQueue, queuedRecords_goAfterTheKeyedOnesOfEveryType)
{
    Fixture fixture;
    fixture.queue(1, {0x11});
    fixture.key(46, 0, {0x22});
    fixture.queue(46, {0x33});
    fixture.key(2, 0, {0x44});
    EXPECT_EQ(fixture.drained(), (Records{{2, {0x44}}, {46, {0x22}}, {1, {0x11}}, {46, {0x33}}}));
}

TEST(PacketQueue, keyedRecords_goByTypeThenByKey)
{
    Fixture fixture;
    fixture.key(12, 2, {1});
    fixture.key(3, 10, {2});
    fixture.key(3, 2, {3});
    fixture.key(12, 1, {4});
    EXPECT_EQ(fixture.drained(), (Records{{3, {3}}, {3, {2}}, {12, {4}}, {12, {1}}}));
}

TEST(PacketQueue, keys_areUnsigned)
{
    Fixture fixture;
    fixture.key(3, 0xFFFFFFFF, {1});
    fixture.key(3, 0x80000000, {2});
    fixture.key(3, 0, {3});
    EXPECT_EQ(fixture.drained(), (Records{{3, {3}}, {3, {2}}, {3, {1}}}));
}

TEST(PacketQueue, queuedRecords_goByType)
{
    Fixture fixture;
    fixture.queue(12, {1});
    fixture.queue(3, {2});
    fixture.queue(12, {3});
    EXPECT_EQ(fixture.drained(), (Records{{3, {2}}, {12, {1}}, {12, {3}}}));
}

// Room for two records of 5 payload bytes behind the header.
TEST(PacketQueue, queuedRecordThatDoesNotFit_isFirstInTheNextDrain)
{
    Fixture fixture(8 + 2 * 8);
    for (const std::uint8_t value : Bytes{1, 2, 3, 4})
        fixture.queue(5, Bytes(5, value));
    EXPECT_FALSE(fixture.drain());
    EXPECT_EQ(fixture.count, 2u);
    EXPECT_TRUE(fixture.waiting.hasMoreData());
    EXPECT_EQ(recordsOf(fixture.packer), (Records{{5, Bytes(5, 1)}, {5, Bytes(5, 2)}}));
    EXPECT_EQ(fixture.drained(), (Records{{5, Bytes(5, 3)}, {5, Bytes(5, 4)}}));
    EXPECT_EQ(fixture.count, 2u);
    EXPECT_FALSE(fixture.waiting.hasMoreData());
}

TEST(PacketQueue, keyedRecordThatDoesNotFit_isFirstInTheNextDrain)
{
    Fixture fixture(8 + 2 * 8);
    for (const std::uint8_t key : Bytes{1, 2, 3})
        fixture.key(5, key, Bytes(5, key));
    fixture.key(6, 0, Bytes(5, 9));
    EXPECT_FALSE(fixture.drain());
    EXPECT_EQ(fixture.count, 2u);
    EXPECT_EQ(recordsOf(fixture.packer), (Records{{5, Bytes(5, 1)}, {5, Bytes(5, 2)}}));
    EXPECT_EQ(fixture.drained(), (Records{{5, Bytes(5, 3)}, {6, Bytes(5, 9)}}));
}

// Written again, the values that still wait are duplicates and the packed ones new.
TEST(PacketQueue, drainThatStopsAtAnyKey_hasTakenThePackedOnesAlone)
{
    for (unsigned int packed = 0; packed < 5; ++packed) {
        SCOPED_TRACE(packed);
        Fixture fixture(8 + packed * 8);
        const auto writeAll = [&fixture] {
            for (std::uint8_t key = 0; key < 5; ++key)
                fixture.key(3, key * 10u, Bytes(5, key));
        };
        const Records all{{3, Bytes(5, 0)}, {3, Bytes(5, 1)}, {3, Bytes(5, 2)}, {3, Bytes(5, 3)}, {3, Bytes(5, 4)}};
        const auto behind = all.begin() + packed;

        writeAll();
        EXPECT_FALSE(fixture.drain());
        EXPECT_EQ(fixture.count, packed);
        EXPECT_EQ(recordsOf(fixture.packer), Records(all.begin(), behind));
        EXPECT_EQ(reach(PendingKeys{}, fixture.waiting)[typeOf(3)].size(), 5 - packed);
        EXPECT_EQ(reach(KeyedData{}, fixture.waiting)[3].size(), 5 - packed);

        fixture.packer.setMaxPacketSize(8192);
        if (packed % 2 == 0) {
            EXPECT_EQ(fixture.drained(), Records(behind, all.end()));
        } else {
            writeAll();
            EXPECT_EQ(fixture.drained(), all);
        }
        EXPECT_FALSE(fixture.waiting.hasMoreData());
    }
}

TEST(PacketQueue, valueThatDidNotFit_canStillBeReplaced)
{
    Fixture fixture(8 + 8);
    fixture.key(5, 1, Bytes(5, 1));
    fixture.key(5, 2, Bytes(5, 2));
    EXPECT_FALSE(fixture.drain());
    fixture.key(5, 2, {3});
    EXPECT_EQ(fixture.drained(), (Records{{5, {3}}}));
}

TEST(PacketQueue, smallerRecordBehindOneThatDoesNotFit_isNotTried)
{
    Fixture fixture(8 + 16);
    fixture.queue(5, Bytes(10, 1));
    fixture.queue(5, Bytes(10, 2));
    fixture.queue(5, {3});
    fixture.queue(6, {4});
    EXPECT_FALSE(fixture.drain());
    EXPECT_EQ(recordsOf(fixture.packer), (Records{{5, Bytes(10, 1)}}));
}

TEST(PacketQueue, keyedRecordThatDoesNotFit_holdsBackTheQueuedOnes)
{
    Fixture fixture(8 + 8);
    fixture.key(46, 1, Bytes(6, 1));
    fixture.queue(0, {1});
    EXPECT_FALSE(fixture.drain());
    EXPECT_EQ(fixture.count, 0u);
    EXPECT_EQ(fixture.packer.getPacketCount(), 0u);
}

TEST(PacketQueue, recordAboveTheLimit_holdsTheQueueBackForGood)
{
    Fixture fixture(8 + 8);
    fixture.queue(5, Bytes(6, 1));
    fixture.queue(5, {1});
    for (int drains = 0; drains < 3; ++drains) {
        EXPECT_FALSE(fixture.drain());
        EXPECT_EQ(fixture.count, 0u);
        EXPECT_TRUE(fixture.waiting.hasMoreData());
    }
}

TEST(PacketQueue, drain_addsToTheCount)
{
    Fixture fixture;
    fixture.queue(5, {1});
    fixture.key(5, 0, {1});
    unsigned int count = 40;
    EXPECT_TRUE(fixture.waiting.prepareNextPacket(fixture.packer, count));
    EXPECT_EQ(count, 42u);
}

TEST(PacketQueue, keyedWriteOfAnUnassignedType_isIgnored)
{
    Fixture fixture;
    for (const int type : {47, 48, 255, 256, 0x7FFFFFFF, -1, -2147483647 - 1})
        fixture.key(type, 1, {1});
    EXPECT_FALSE(fixture.waiting.hasMoreData());
    EXPECT_EQ(fixture.drained(), Records{});
}

TEST(PacketQueue, queuedWriteOfAnUnassignedType_isSent)
{
    Fixture fixture;
    fixture.queue(47, {1});
    fixture.queue(255, {2});
    fixture.queue(-1, {3}); // as one byte, 255; lowest of all
    EXPECT_EQ(fixture.drained(), (Records{{255, {3}}, {47, {1}}, {255, {2}}}));
}

TEST(PacketQueue, pendingKeyWithoutAValue_isSkipped)
{
    Fixture fixture;
    fixture.key(5, 2, {2});
    reach(PendingKeys{}, fixture.waiting)[typeOf(5)].insert({1, 3});
    EXPECT_EQ(fixture.drained(), (Records{{5, {2}}}));
    EXPECT_EQ(fixture.count, 1u);
    EXPECT_FALSE(fixture.waiting.hasMoreData());
}

TEST(PacketQueue, pendingTypeAbove46_isDiscarded)
{
    Fixture fixture;
    fixture.key(46, 2, {2});
    reach(PendingKeys{}, fixture.waiting)[typeOf(47)].insert({1, 2});
    EXPECT_EQ(fixture.drained(), (Records{{46, {2}}}));
    EXPECT_FALSE(fixture.waiting.hasMoreData());
}

} // namespace Vantor
