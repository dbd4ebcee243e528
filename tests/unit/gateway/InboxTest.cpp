#include "panel2mqtt/Inbox.h"

#include <gmock/gmock.h>
#include <poll.h>

namespace Vantor {

namespace {

using testing::AnyOf;
using testing::ElementsAre;

bool isSignalled(const Inbox& inbox)
{
    pollfd entry = {inbox.getSignal(), POLLIN, 0};
    return poll(&entry, 1, 0) == 1;
}

bool add(Inbox& inbox, const std::string& topic, const std::string& payload)
{
    Message message;
    message.topic = topic;
    message.payload = payload;
    return inbox.addMessage(message);
}

bool addNumbered(Inbox& inbox, std::size_t number)
{
    return add(inbox, "t", std::to_string(number));
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

TEST(Inbox, commandsForPanels_takeTurnsAndEachKeepsItsOrder)
{
    Inbox inbox;
    for (const char* const payload : {"a1", "a2", "a3"})
        add(inbox, "panel/1/shop/1-1/do/send/5", payload);
    add(inbox, "panel/1/all/1-2/do/draw/0", "b1");
    add(inbox, "panel/1/shop/1-2/do/flash", "b2");
    EXPECT_THAT(payloadsOf(inbox.take()), ElementsAre("a1", "b1", "a2", "b2", "a3"));
    EXPECT_FALSE(isSignalled(inbox));
    add(inbox, "panel/1/shop/1-1/do/send/5", "a4");
    EXPECT_THAT(payloadsOf(inbox.take()), ElementsAre("a4"));
}

TEST(Inbox, turns_goOnWhereTheyWere)
{
    Inbox inbox;
    for (std::size_t number = 0; number < 100; ++number) {
        add(inbox, "panel/1/shop/1-1/do/send/5", "a" + std::to_string(number));
        add(inbox, "panel/1/shop/1-2/do/send/5", "b" + std::to_string(number));
        add(inbox, "panel/1/shop/1-3/do/send/5", "c" + std::to_string(number));
    }
    EXPECT_EQ(payloadsOf(inbox.take()).back(), "a21");
    EXPECT_EQ(payloadsOf(inbox.take()).front(), "b21");
}

TEST(Inbox, whatIsForNoSinglePanel_comesBehindWhatCameEarlierAndBeforeWhatCameLater)
{
    for (const char* const topic : {"panel/1/shop/all/do/send/5", "panel/1/shop/1-1/want/5/0", "panel/1/shop/told",
                                    "panel/1/shop/1-1/state", "panel/1/shop/1-1/do", "panel", ""}) {
        Inbox inbox;
        add(inbox, "panel/1/shop/1-1/do/send/5", "a1");
        add(inbox, "panel/1/shop/1-1/do/send/5", "a2");
        add(inbox, "panel/1/shop/1-2/do/send/5", "b1");
        add(inbox, topic, "all");
        add(inbox, "panel/1/shop/1-3/do/send/5", "c1");
        add(inbox, "panel/1/shop/1-1/do/send/5", "a3");
        EXPECT_THAT(payloadsOf(inbox.take()), AnyOf(ElementsAre("a1", "b1", "a2", "all", "c1", "a3"),
                                                    ElementsAre("a1", "b1", "a2", "all", "a3", "c1")))
            << topic;
    }
}

TEST(Inbox, wishesBetweenCommands_keepTheirPlaceAmongAllOfThem)
{
    Inbox inbox;
    std::vector<std::string> expected;
    for (char name = 'a'; name < 'o'; ++name) {
        const std::string text(1, name);
        ASSERT_TRUE(add(inbox, "panel/1/shop/1-1/do/send/5", text + "1"));
        ASSERT_TRUE(add(inbox, "panel/1/shop/1-1/want/5/0", text + "2"));
        ASSERT_TRUE(add(inbox, "panel/1/shop/1-2/want/5/0", text + "3"));
        ASSERT_TRUE(add(inbox, "panel/1/shop/1-2/do/send/5", text + "4"));
        for (const char* const number : {"1", "2", "3", "4"})
            expected.push_back(text + number);
    }
    // Two that follow each other, for different panels, may change places.
    std::vector<std::string> taken = payloadsOf(inbox.take());
    ASSERT_EQ(taken.size(), expected.size());
    for (std::size_t place = 3; place + 1 < taken.size(); place += 4) {
        if (taken[place] != expected[place])
            std::swap(taken[place], taken[place + 1]);
    }
    EXPECT_EQ(taken, expected);
}

TEST(Inbox, floodForOnePanel_leavesRoomForOthersAndDelaysThemByNone)
{
    Inbox inbox;
    const std::string flooded = "panel/1/shop/1-1/do/send/5";
    for (std::size_t number = 0; number < 1024; ++number)
        ASSERT_TRUE(add(inbox, flooded, "flood"));
    EXPECT_FALSE(add(inbox, flooded, "flood"));
    EXPECT_TRUE(add(inbox, "panel/1/shop/1-2/do/send/5", "quick"));
    EXPECT_EQ(payloadsOf(inbox.take()).at(1), "quick");
    EXPECT_TRUE(add(inbox, flooded, "flood")); // 63 were taken
}

TEST(Inbox, bytesForOnePanel_leaveRoomForOthers)
{
    Inbox inbox;
    const std::string flooded = "panel/1/shop/1-1/do/flash";
    EXPECT_TRUE(add(inbox, flooded, std::string(16u << 20, 'x')));
    EXPECT_TRUE(add(inbox, flooded, std::string((16u << 20) - 2 * flooded.size(), 'x'))); // 32 MiB
    EXPECT_FALSE(add(inbox, flooded, ""));
    EXPECT_TRUE(add(inbox, "panel/1/shop/1-2/do/flash", std::string(16u << 20, 'x')));
    EXPECT_EQ(inbox.take().size(), 3U);
    EXPECT_TRUE(add(inbox, flooded, ""));
}

TEST(Inbox, bytesForOnePanelTakenInPart_makeRoomForAsMany)
{
    Inbox inbox;
    const std::string flooded = "panel/1/shop/1-1/do/flash";
    for (std::size_t number = 0; number < 65; ++number)
        ASSERT_TRUE(add(inbox, flooded, std::string(500000, 'x'))); // 31 MiB
    EXPECT_FALSE(add(inbox, flooded, std::string(2u << 20, 'x')));
    EXPECT_EQ(inbox.take().size(), 64U);
    EXPECT_TRUE(add(inbox, flooded, std::string(31u << 20, 'x')));
}

TEST(Inbox, panelsThatHaveNothingLeft_areForgotten)
{
    Inbox inbox;
    for (int round = 0; round < 3; ++round) {
        for (std::size_t number = 0; number < 4096; ++number)
            ASSERT_TRUE(add(inbox, "panel/1/shop/1-" + std::to_string(number) + "/do/send/5", "x"));
        EXPECT_FALSE(add(inbox, "panel/1/shop/1-1/do/send/5", "x"));
        for (int taken = 0; taken < 64; ++taken)
            EXPECT_EQ(inbox.take().size(), 64U);
        EXPECT_FALSE(isSignalled(inbox));
    }
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
