#include "simulator/panel/PanelOutbox.h"
#include "tests/support/Bytes.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// 0, 1, 2 … so that a byte out of place shows.
Bytes counting(std::size_t size, std::size_t first = 0)
{
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>((first + i) % 251);
    return bytes;
}

TEST(PanelOutbox, waitingPackets_goOutTogetherAsFarAsTheyFit)
{
    PanelOutbox outbox;
    outbox.add({1, 2});
    outbox.add({3, 4, 5});
    outbox.add({6});
    const auto first = outbox.take(5);
    EXPECT_EQ(first.status, 0);
    EXPECT_THAT(first.bytes, ElementsAre(1, 2, 3, 4, 5));
    EXPECT_EQ(first.packets, 2u);
    EXPECT_FALSE(outbox.isEmpty());
    const auto second = outbox.take(5);
    EXPECT_THAT(second.bytes, ElementsAre(6));
    EXPECT_EQ(second.packets, 1u);
    EXPECT_TRUE(outbox.isEmpty());
}

TEST(PanelOutbox, packetThatDoesNotFitWithTheFirst_waitsWhole)
{
    PanelOutbox outbox;
    outbox.add({1, 2});
    outbox.add({3, 4, 5});
    outbox.add({6});
    EXPECT_THAT(outbox.take(4).bytes, ElementsAre(1, 2));
    EXPECT_THAT(outbox.take(4).bytes, ElementsAre(3, 4, 5, 6));
}

TEST(PanelOutbox, wholeBusPackets_endTheRead)
{
    PanelOutbox outbox;
    outbox.add(counting(512));
    const auto chunk = outbox.take(1024);
    EXPECT_EQ(chunk.bytes, counting(512));
    EXPECT_EQ(chunk.packets, 1u);
    EXPECT_TRUE(outbox.isEmpty());
}

TEST(PanelOutbox, readFilledToTheLastBusPacket_nextReadEndsItWithNothing)
{
    PanelOutbox outbox;
    outbox.add(counting(1024));
    EXPECT_EQ(outbox.take(1024).packets, 1u);
    ASSERT_FALSE(outbox.isEmpty());
    outbox.add({7});
    const auto end = outbox.take(1024);
    EXPECT_EQ(end.status, 0);
    EXPECT_THAT(end.bytes, IsEmpty());
    EXPECT_EQ(end.packets, 0u);
    EXPECT_THAT(outbox.take(1024).bytes, ElementsAre(7));
    EXPECT_TRUE(outbox.isEmpty());
}

TEST(PanelOutbox, readFilledByAShortBusPacket_isEnded)
{
    PanelOutbox outbox;
    outbox.add(counting(600));
    EXPECT_EQ(outbox.take(600).bytes, counting(600));
    EXPECT_TRUE(outbox.isEmpty());
}

TEST(PanelOutbox, packetLargerThanTheRead_goesOnInTheNext)
{
    PanelOutbox outbox;
    outbox.add(counting(1100));
    outbox.add({9});
    const auto first = outbox.take(512);
    EXPECT_EQ(first.bytes, counting(512));
    EXPECT_EQ(first.packets, 0u);
    EXPECT_EQ(outbox.take(512).bytes, counting(512, 512));
    const auto last = outbox.take(512);
    EXPECT_EQ(last.bytes, counting(76, 1024));
    EXPECT_EQ(last.packets, 1u);
    EXPECT_THAT(outbox.take(512).bytes, ElementsAre(9));
}

TEST(PanelOutbox, packetLargerThanAReadOfOddSize_overflowsAndLosesTheRest)
{
    PanelOutbox outbox;
    outbox.add(counting(1100));
    outbox.add({9});
    const auto chunk = outbox.take(1000);
    EXPECT_EQ(chunk.status, -EOVERFLOW);
    EXPECT_EQ(chunk.bytes, counting(512));
    EXPECT_EQ(chunk.packets, 0u);
    EXPECT_THAT(outbox.take(1000).bytes, ElementsAre(9));
}

TEST(PanelOutbox, readOfNoBytes_takesNothingAndLosesNothing)
{
    PanelOutbox outbox;
    outbox.add({9});
    const auto chunk = outbox.take(0);
    EXPECT_EQ(chunk.status, 0);
    EXPECT_THAT(chunk.bytes, IsEmpty());
    EXPECT_EQ(chunk.packets, 0u);
    EXPECT_THAT(outbox.take(512).bytes, ElementsAre(9));
}

TEST(PanelOutbox, emptyPacketInAReadOfNoBytes_isEnded)
{
    PanelOutbox outbox;
    outbox.add({});
    EXPECT_THAT(outbox.take(0).bytes, IsEmpty());
    EXPECT_TRUE(outbox.isEmpty());
}

TEST(PanelOutbox, emptyPacket_readOfNothing)
{
    PanelOutbox outbox;
    outbox.add({});
    EXPECT_FALSE(outbox.isEmpty());
    EXPECT_THAT(outbox.take(512).bytes, IsEmpty());
    EXPECT_TRUE(outbox.isEmpty());
}

TEST(PanelOutbox, limit_losesTheRestOfTheTransferOnly)
{
    PanelOutbox outbox;
    outbox.add({1, 2});
    outbox.add({3, 4});
    outbox.add({5, 6});
    const auto chunk = outbox.take(4, 3);
    EXPECT_THAT(chunk.bytes, ElementsAre(1, 2, 3));
    EXPECT_EQ(chunk.packets, 1u);
    EXPECT_THAT(outbox.take(4, 2).bytes, ElementsAre(5, 6));
    EXPECT_TRUE(outbox.isEmpty());
}

TEST(PanelOutbox, limitInAPacketLargerThanTheRead_losesAllTheRest)
{
    PanelOutbox outbox;
    outbox.add(counting(1100));
    const auto chunk = outbox.take(512, 100);
    EXPECT_EQ(chunk.bytes, counting(100));
    EXPECT_EQ(chunk.packets, 0u);
    EXPECT_TRUE(outbox.isEmpty());
}

TEST(PanelOutbox, clear_dropsWaitingAndBegun)
{
    PanelOutbox outbox;
    outbox.add(counting(1100));
    outbox.add({9});
    outbox.take(512);
    outbox.clear();
    EXPECT_TRUE(outbox.isEmpty());
}

} // namespace
} // namespace Vantor
