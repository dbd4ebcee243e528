// The queue when the protocol library throws. A program of its own: its framing of records
// stands in front of the protocol library's.
#include "libMorvaneHostUsb/PacketQueue.h"

#include "libMorvaneHostUsb/PriorityPacker.h"

#include "tests/support/PackedBytes.h"

#include <new>

#include <gtest/gtest.h>

namespace Vantor {

namespace {

using Records = std::vector<PackedRecord>;

Records s_packed;
std::size_t s_room = 0; // records that are taken before one fails

} // namespace

std::size_t PacketPacker::addStructData(const void* data, const unsigned int& size, const PacketType& type)
{
    if (s_packed.size() == s_room)
        throw std::bad_alloc();
    const auto* const bytes = static_cast<const std::uint8_t*>(data);
    s_packed.push_back({static_cast<int>(type), Bytes(bytes, bytes + size)});
    return 3 + size;
}

namespace {

struct Fixture {
    void writeKeys()
    {
        for (const std::uint8_t key : Bytes{10, 20, 30})
            waiting.addStructData(Bytes{key}, typeOf(3), key);
        waiting.addStructData(Bytes{40}, typeOf(4), 40u);
    }

    // The records packed until the framing fails at the one behind `room`.
    Records packedUntilFailure(std::size_t room)
    {
        s_packed.clear();
        s_room = room;
        unsigned int count = 0;
        EXPECT_THROW(waiting.prepareNextPacket(packer, count), std::bad_alloc);
        EXPECT_EQ(count, room);
        return s_packed;
    }

    Records drained()
    {
        s_packed.clear();
        s_room = 1000;
        unsigned int count = 0;
        EXPECT_TRUE(waiting.prepareNextPacket(packer, count));
        EXPECT_FALSE(waiting.hasMoreData());
        return s_packed;
    }

    PacketQueue waiting;
    PriorityPacker packer{8192};
};

const Records keys{{3, {10}}, {3, {20}}, {3, {30}}, {4, {40}}};
const Records queued{{3, {1}}, {3, {2}}, {4, {3}}};

} // namespace

TEST(PacketQueueException, framingThatThrowsAtAnyKey_hasTakenThePackedOnesAlone)
{
    for (std::size_t room = 0; room < keys.size(); ++room) {
        SCOPED_TRACE(room);
        Fixture fixture;
        fixture.writeKeys();
        const auto behind = keys.begin() + static_cast<std::ptrdiff_t>(room);
        EXPECT_EQ(fixture.packedUntilFailure(room), Records(keys.begin(), behind));
        EXPECT_EQ(fixture.drained(), Records(behind, keys.end()));
    }
}

// Written again, the values that still wait are duplicates and the packed ones new.
TEST(PacketQueueException, keysWrittenAgainAfterIt_areSentOnceEach)
{
    for (std::size_t room = 0; room < keys.size(); ++room) {
        SCOPED_TRACE(room);
        Fixture fixture;
        fixture.writeKeys();
        fixture.packedUntilFailure(room);
        fixture.writeKeys();
        EXPECT_EQ(fixture.drained(), keys);
    }
}

TEST(PacketQueueException, framingThatThrowsAtAnyQueuedRecord_hasTakenThePackedOnesAlone)
{
    for (std::size_t room = 0; room < queued.size(); ++room) {
        SCOPED_TRACE(room);
        Fixture fixture;
        for (const PackedRecord& record : queued)
            fixture.waiting.addStructData(record.payload, typeOf(record.type));
        const auto behind = queued.begin() + static_cast<std::ptrdiff_t>(room);
        EXPECT_EQ(fixture.packedUntilFailure(room), Records(queued.begin(), behind));
        EXPECT_EQ(fixture.drained(), Records(behind, queued.end()));
    }
}

} // namespace Vantor
