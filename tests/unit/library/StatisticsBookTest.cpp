// The sums over devices, member by member.
#include "libMorvaneHostUsb/StatisticsBook.h"
#include "libMorvaneHostUsb/DeviceCounters.h"
#include "libMorvaneHostUsb/PriorityPacker.h"
#include "libMorvaneHostUsb/UsbMessageQueue.h"

#include <array>
#include <cstring>
#include <set>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

// Nothing but counts of 64 bits is in it.
constexpr std::size_t members = sizeof(DeviceStatistics) / sizeof(std::uint64_t);
using Members = std::array<std::uint64_t, members>;

Members membersOf(const DeviceStatistics& statistics)
{
    Members values{};
    std::memcpy(values.data(), &statistics, sizeof statistics);
    return values;
}

// Member i counts `factor` times i + 1.
DeviceStatistics numbered(std::uint64_t factor)
{
    Members values{};
    for (std::size_t i = 0; i < members; ++i)
        values[i] = factor * (i + 1);
    DeviceStatistics statistics;
    std::memcpy(static_cast<void*>(&statistics), values.data(), sizeof statistics);
    return statistics;
}

std::size_t placeOf(const DeviceStatistics& statistics, const std::uint64_t& member)
{
    return static_cast<std::size_t>(&member - reinterpret_cast<const std::uint64_t*>(&statistics));
}

// The places of what is not added up, but the greatest of all devices.
std::set<std::size_t> placesOfMost()
{
    const DeviceStatistics one;
    return {placeOf(one, one.highPriorityRecords.most), placeOf(one, one.normalRecords.most),
            placeOf(one, one.pictures.most)};
}

void setAll(DeviceCounters& counters, std::uint64_t factor)
{
    counters.change([factor](DeviceStatistics& statistics) { statistics = numbered(factor); });
}

void expectSumOfOneAndTwo(const StatisticsBook& book)
{
    const Members sums = membersOf(book.read().devices);
    for (std::size_t i = 0; i < members; ++i)
        EXPECT_EQ(sums[i], (placesOfMost().count(i) != 0 ? 2 : 3) * (i + 1)) << "member " << i;
}

} // namespace

TEST(StatisticsBook, everyMember_isInTheSumsAsLongAsTheCountersAreAndAfterwards)
{
    const auto book = std::make_shared<StatisticsBook>();
    const PriorityPacker packer(1100);
    {
        DeviceCounters one;
        DeviceCounters two;
        one.enter(book, packer);
        two.enter(book, packer);
        one.leave();
        two.leave();
        setAll(one, 1);
        setAll(two, 2);
        expectSumOfOneAndTwo(*book);
    }
    expectSumOfOneAndTwo(*book);
}

TEST(StatisticsBook, whatWaitedInAPackerThatGoes_waitsNoMore)
{
    const auto book = std::make_shared<StatisticsBook>();
    DeviceCounters counters;
    {
        PriorityPacker packer(1100);
        counters.enter(book, packer);
        packer.addStructData("a", 1U, static_cast<PacketType>(5));
        packer.addStructData("a", 1U, static_cast<PacketType>(6));
        packer.drawBitmapData(ClientLcdBitmap(8, 8, 8));
        const DeviceStatistics before = book->read().devices;
        EXPECT_EQ(before.normalRecords.now, 1U);
        EXPECT_EQ(before.highPriorityRecords.now, 1U);
        EXPECT_EQ(before.pictures.now, 1U);
        counters.leave();
    }
    const DeviceStatistics after = book->read().devices;
    EXPECT_EQ(after.normalRecords.now, 0U);
    EXPECT_EQ(after.highPriorityRecords.now, 0U);
    EXPECT_EQ(after.pictures.now, 0U);
    EXPECT_EQ(after.normalRecords.most, 1U);
    EXPECT_EQ(after.highPriorityRecords.most, 1U);
    EXPECT_EQ(after.pictures.most, 1U);
}

TEST(StatisticsBook, queueThatIsLetGo_isFreedWithItsMessages)
{
    const auto book = std::make_shared<StatisticsBook>();
    const PriorityPacker packer(1100);
    auto counters = std::make_shared<DeviceCounters>();
    counters->enter(book, packer);
    counters->leave();
    auto queue = std::make_shared<UsbMessageQueue>();
    auto message = std::make_unique<UsbMessage>(1U, static_cast<unsigned short>(9));
    message->counters = std::move(counters);
    const std::weak_ptr<DeviceCounters> watched = message->counters;
    queue->addMessage(std::move(message));
    book->setQueue(std::move(queue));
    EXPECT_EQ(book->read().waitingBuffers, 1U);
    EXPECT_FALSE(watched.expired());
    book->setQueue(nullptr);
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(book->read().waitingBuffers, 0U);
}

} // namespace Vantor
