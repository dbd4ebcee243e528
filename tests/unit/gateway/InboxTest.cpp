#include "panel2mqtt/Inbox.h"

#include <gmock/gmock.h>
#include <poll.h>

namespace Vantor {

namespace {

bool isSignalled(const Inbox& inbox)
{
    pollfd entry = {inbox.getSignal(), POLLIN, 0};
    return poll(&entry, 1, 0) == 1;
}

bool addNumbered(Inbox& inbox, std::size_t number)
{
    Message message;
    message.topic = "t";
    message.payload = std::to_string(number);
    return inbox.addMessage(message);
}

std::vector<std::string> payloadsOf(const std::vector<Inbox::Item>& items)
{
    std::vector<std::string> payloads;
    payloads.reserve(items.size());
    for (const Inbox::Item& item : items)
        payloads.push_back(std::get<Message>(item).payload);
    return payloads;
}

} // namespace

TEST(Inbox, nothingWaits_isNotSignalledAndGivesNothing)
{
    Inbox inbox;
    EXPECT_FALSE(isSignalled(inbox));
    EXPECT_TRUE(inbox.take().empty());
}

TEST(Inbox, moreThanGoTogether_givesTheOldestAndStaysSignalledForTheRest)
{
    Inbox inbox;
    for (std::size_t number = 0; number < 65; ++number)
        ASSERT_TRUE(addNumbered(inbox, number));
    const auto first = payloadsOf(inbox.take());
    ASSERT_EQ(first.size(), 64U);
    EXPECT_EQ(first.front(), "0");
    EXPECT_EQ(first.back(), "63");
    EXPECT_TRUE(isSignalled(inbox));
    EXPECT_EQ(payloadsOf(inbox.take()), std::vector<std::string>{"64"});
    EXPECT_FALSE(isSignalled(inbox));
}

TEST(Inbox, newsBehindTheLastThatWasTaken_isSignalledAgain)
{
    Inbox inbox;
    inbox.add(Inbox::Connecting{});
    inbox.take();
    inbox.add(Inbox::Disconnected{"why"});
    EXPECT_TRUE(isSignalled(inbox));
    EXPECT_EQ(std::get<Inbox::Disconnected>(inbox.take().at(0)).reason, "why");
}

TEST(Inbox, fullAndTakenInPart_hasRoomForAsManyAndForNewsAlways)
{
    Inbox inbox;
    for (std::size_t number = 0; number < 4096; ++number)
        ASSERT_TRUE(addNumbered(inbox, number));
    EXPECT_FALSE(addNumbered(inbox, 4096));
    inbox.add(Inbox::Connecting{});
    inbox.take();
    for (std::size_t number = 0; number < 64; ++number)
        EXPECT_TRUE(addNumbered(inbox, number)) << number;
    EXPECT_FALSE(addNumbered(inbox, 64));
}

TEST(Inbox, bytesTakenInPart_makeRoomForAsMany)
{
    Inbox inbox;
    Message message;
    for (unsigned int number = 0; number < 64; ++number) { // 64 MiB
        message.payload.assign(1U << 20U, 'x');
        ASSERT_TRUE(inbox.addMessage(message));
    }
    message.payload = "y";
    EXPECT_FALSE(inbox.addMessage(message));
    EXPECT_EQ(message.payload, "y");
    inbox.take();
    EXPECT_TRUE(inbox.addMessage(message));
}

} // namespace Vantor
