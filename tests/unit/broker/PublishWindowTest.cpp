#include "panel2mqtt/broker/PublishWindow.h"

#include <string>

#include <gtest/gtest.h>

namespace Vantor {

namespace {

PublishWindow::Item itemOf(std::size_t payload, std::uint64_t number = 0)
{
    PublishWindow::Item item = {BrokerLink::Kind::Answer, {}, number};
    item.message.payload = std::string(payload, 'x');
    return item;
}

TEST(PublishWindow, messages_areSixtyFour)
{
    PublishWindow window;
    for (int id = 1; id <= 64; ++id) {
        EXPECT_TRUE(window.hasRoomFor(20));
        window.add(id, itemOf(1), {});
    }
    EXPECT_FALSE(window.hasRoomFor(20));
    EXPECT_TRUE(window.complete(30));
    EXPECT_TRUE(window.hasRoomFor(20));
    EXPECT_FALSE(window.complete(30));
    EXPECT_FALSE(window.complete(65));
}

TEST(PublishWindow, busy_goFourAtATimeAndNotBesideMoreOfOthers)
{
    PublishWindow window;
    for (int id = 1; id <= 4; ++id) {
        EXPECT_TRUE(window.hasRoomFor(20, true));
        window.add(id, itemOf(1), {});
    }
    EXPECT_FALSE(window.hasRoomFor(20, true));
    EXPECT_TRUE(window.hasRoomFor(20, false));
    window.complete(2);
    EXPECT_TRUE(window.hasRoomFor(20, true));
}

TEST(PublishWindow, laterState_isOneOfTheSameTopic)
{
    const auto stateOf = [](const std::string& topic, std::uint64_t number) {
        PublishWindow::Item item = {BrokerLink::Kind::State, {}, number};
        item.message.topic = topic;
        return item;
    };
    PublishWindow window;
    window.add(1, stateOf("s", 5), {});
    EXPECT_TRUE(window.hasLater(stateOf("s", 4)));
    EXPECT_FALSE(window.hasLater(stateOf("s", 5)));
    EXPECT_FALSE(window.hasLater(stateOf("t", 4)));
}

TEST(PublishWindow, bytes_areAMebibyte)
{
    PublishWindow window;
    window.add(1, itemOf((1U << 20U) - 113), {}); // and 13 of its own
    EXPECT_TRUE(window.hasRoomFor(100));
    EXPECT_FALSE(window.hasRoomFor(101));
    window.complete(1);
    EXPECT_TRUE(window.hasRoomFor(1U << 30U)); // alone
    window.add(2, itemOf(1), {});
    EXPECT_FALSE(window.hasRoomFor(1U << 20U));
}

TEST(PublishWindow, oldest_isOfWhatStillWaits)
{
    const PublishWindow::TimePoint begin{};
    PublishWindow window;
    EXPECT_EQ(window.getOldest(), PublishWindow::TimePoint::max());
    window.add(7, itemOf(1), begin + std::chrono::seconds(1));
    window.add(3, itemOf(1), begin + std::chrono::seconds(2));
    EXPECT_EQ(window.getOldest(), begin + std::chrono::seconds(1));
    window.complete(7);
    EXPECT_EQ(window.getOldest(), begin + std::chrono::seconds(2));
}

TEST(PublishWindow, overtaken_isWhatALaterConfirmationLeftBehindUntilItsOwnComes)
{
    const auto confirmedOf = [](std::uint64_t number) {
        PublishWindow::Item item = itemOf(1000, number);
        item.message.qos = 1;
        return item;
    };
    const PublishWindow::TimePoint begin{};
    PublishWindow window;
    window.add(1, confirmedOf(1), begin);
    window.add(9, confirmedOf(2), begin);
    window.add(4, itemOf(1000, 3), begin);
    window.add(5, confirmedOf(4), begin);
    window.add(6, confirmedOf(5), begin);
    window.complete(4); // of QoS 0: it was written
    window.complete(1);
    EXPECT_TRUE(window.takeOvertaken(begin).empty());
    EXPECT_EQ(window.getOldestOvertaken(), PublishWindow::TimePoint::max());
    window.complete(5);
    const auto overtaken = window.takeOvertaken(begin + std::chrono::seconds(7));
    ASSERT_EQ(overtaken.size(), 1U);
    EXPECT_EQ(overtaken[0].number, 2U);
    EXPECT_EQ(window.getOldestOvertaken(), begin + std::chrono::seconds(7));
    EXPECT_FALSE(window.complete(9)); // later than what came behind it
    EXPECT_EQ(window.getOldestOvertaken(), PublishWindow::TimePoint::max());
    EXPECT_TRUE(window.complete(6));
    EXPECT_TRUE(window.hasRoomFor((1U << 20U)));
}

TEST(PublishWindow, overtakenOfSeveralTimes_areAsOldAsTheOldestThatIsLeft)
{
    const PublishWindow::TimePoint begin{};
    PublishWindow window;
    const auto overtake = [&](int id, std::chrono::seconds time) {
        PublishWindow::Item item = itemOf(1);
        item.message.qos = 1;
        window.add(id, item, begin);
        window.add(id + 1, item, begin);
        window.complete(id + 1);
        return window.takeOvertaken(begin + time).size();
    };
    for (int number = 1; number <= 4; ++number)
        ASSERT_EQ(overtake(10 * number, std::chrono::seconds(number)), 1U);
    EXPECT_EQ(window.getOldestOvertaken(), begin + std::chrono::seconds(1));
    window.complete(20);
    EXPECT_EQ(window.getOldestOvertaken(), begin + std::chrono::seconds(1));
    window.complete(10);
    EXPECT_EQ(window.getOldestOvertaken(), begin + std::chrono::seconds(3));
    ASSERT_EQ(overtake(30, std::chrono::seconds(5)), 1U); // an id that has come round
    EXPECT_EQ(window.getOldestOvertaken(), begin + std::chrono::seconds(4));
    window.complete(40);
    EXPECT_EQ(window.getOldestOvertaken(), begin + std::chrono::seconds(5));
    window.complete(30);
    EXPECT_EQ(window.getOldestOvertaken(), PublishWindow::TimePoint::max());
}

TEST(PublishWindow, idThatComesRound_isTheLaterOne)
{
    PublishWindow window;
    window.add(1, itemOf(1, 10), {});
    window.add(1, itemOf(1, 11), {});
    EXPECT_EQ(window.complete(1)->number, 11U);
    EXPECT_TRUE(window.isEmpty());
}

TEST(PublishWindow, whatIsLeft_isTakenWhole)
{
    PublishWindow window;
    window.add(1, itemOf(600000, 1), {});
    window.add(2, itemOf(1, 2), {});
    EXPECT_EQ(window.takeAll().size(), 2U);
    EXPECT_TRUE(window.isEmpty());
    window.add(3, itemOf(1), {});
    EXPECT_TRUE(window.hasRoomFor(1000000));
}

} // namespace

} // namespace Vantor
