// The queue when memory runs out. A program of its own: it replaces operator new.
#include "libMorvaneHostUsb/PacketQueue.h"

#include "libMorvaneHostUsb/PriorityPacker.h"

#include "tests/support/PackedBytes.h"
#include "tests/unit/library/AllocationFailure.h"

#include <new>

#include <gtest/gtest.h>

namespace Vantor {

using Test::AllocationFailure;

namespace {

using Records = std::vector<PackedRecord>;

Records drained(PacketQueue& queue, PriorityPacker& packer)
{
    unsigned int count = 0;
    packer.clearData();
    EXPECT_TRUE(queue.prepareNextPacket(packer, count));
    EXPECT_EQ(count, recordsOf(packer).size());
    EXPECT_FALSE(queue.hasMoreData());
    return recordsOf(packer);
}

// Calls `write` with its first, second, third … allocation failing, until one runs
// through; `check` is told what became of each queue, and whether the write was taken.
template <typename Write, typename Check>
void failEachAllocationOf(
    Write write, Check check, void (*prepare)(PacketQueue&) = [](PacketQueue&) {})
{
    int failures = 0;
    for (bool failed = true; failed; ++failures) {
        PacketQueue queue;
        PriorityPacker packer(8192);
        prepare(queue);
        {
            const Bytes payload{1, 2, 3};
            const AllocationFailure failure(failures + 1);
            try {
                write(queue, payload);
            } catch (const std::bad_alloc&) {
            }
            failed = failure.hasHappened();
        }
        check(queue, packer, !failed);
    }
    EXPECT_GT(failures, 1) << "nothing failed";
}

} // namespace

TEST(PacketQueueMemory, keyedWriteThatFailed_canBeRepeated)
{
    const auto write = [](PacketQueue& queue, const Bytes& payload) { queue.addStructData(payload, typeOf(3), 7u); };
    failEachAllocationOf(write, [](PacketQueue& queue, PriorityPacker& packer, bool) {
        queue.addStructData(Bytes{1, 2, 3}, typeOf(3), 7u);
        EXPECT_EQ(drained(queue, packer), (Records{{3, {1, 2, 3}}}));
    });
}

TEST(PacketQueueMemory, keyedWriteThatFailed_leavesNothingBehind)
{
    const auto write = [](PacketQueue& queue, const Bytes& payload) { queue.addStructData(payload, typeOf(3), 7u); };
    failEachAllocationOf(write, [](PacketQueue& queue, PriorityPacker& packer, bool taken) {
        EXPECT_EQ(drained(queue, packer), taken ? (Records{{3, {1, 2, 3}}}) : Records{});
    });
}

TEST(PacketQueueMemory, keyedWriteThatFailed_leavesTheOtherKeys)
{
    const auto prepare = [](PacketQueue& queue) {
        queue.addStructData(Bytes{5}, typeOf(3), 5u);
        queue.addStructData(Bytes{9}, typeOf(3), 9u);
    };
    const auto write = [](PacketQueue& queue, const Bytes& payload) { queue.addStructData(payload, typeOf(3), 7u); };
    const auto check = [](PacketQueue& queue, PriorityPacker& packer, bool taken) {
        EXPECT_EQ(drained(queue, packer),
                  taken ? (Records{{3, {5}}, {3, {1, 2, 3}}, {3, {9}}}) : (Records{{3, {5}}, {3, {9}}}));
    };
    failEachAllocationOf(write, check, prepare);
}

// Its key is left pending without a value, and the drain stops behind it.
TEST(PacketQueueMemory, keyedWriteThatFailed_canBeRepeatedAfterADrainThatStopped)
{
    const auto prepare = [](PacketQueue& queue) {
        queue.addStructData(Bytes{5}, typeOf(3), 5u);
        queue.addStructData(Bytes(100, 9), typeOf(3), 9u);
    };
    const auto write = [](PacketQueue& queue, const Bytes& payload) { queue.addStructData(payload, typeOf(3), 7u); };
    const auto check = [](PacketQueue& queue, PriorityPacker& packer, bool taken) {
        packer.setMaxPacketSize(50);
        unsigned int count = 0;
        EXPECT_FALSE(queue.prepareNextPacket(packer, count));
        EXPECT_EQ(recordsOf(packer), taken ? (Records{{3, {5}}, {3, {1, 2, 3}}}) : (Records{{3, {5}}}));
        packer.setMaxPacketSize(8192);
        queue.addStructData(Bytes{1, 2, 3}, typeOf(3), 7u);
        EXPECT_EQ(drained(queue, packer), (Records{{3, {1, 2, 3}}, {3, Bytes(100, 9)}}));
    };
    failEachAllocationOf(write, check, prepare);
}

TEST(PacketQueueMemory, overwriteThatFailed_keepsTheWaitingValue)
{
    const auto prepare = [](PacketQueue& queue) { queue.addStructData(Bytes{7}, typeOf(3), 7u); };
    const auto write = [](PacketQueue& queue, const Bytes& payload) { queue.addStructData(payload, typeOf(3), 7u); };
    const auto check = [](PacketQueue& queue, PriorityPacker& packer, bool taken) {
        EXPECT_EQ(drained(queue, packer), taken ? (Records{{3, {1, 2, 3}}}) : (Records{{3, {7}}}));
    };
    failEachAllocationOf(write, check, prepare);
}

TEST(PacketQueueMemory, queuedWriteThatFailed_leavesNothingBehind)
{
    const auto write = [](PacketQueue& queue, const Bytes& payload) { queue.addStructData(payload, typeOf(3)); };
    failEachAllocationOf(write, [](PacketQueue& queue, PriorityPacker& packer, bool taken) {
        EXPECT_EQ(drained(queue, packer), taken ? (Records{{3, {1, 2, 3}}}) : Records{});
    });
}

} // namespace Vantor
