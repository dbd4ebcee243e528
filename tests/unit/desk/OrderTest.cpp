#include "panel2mqtt/desk/Order.h"

#include <string>
#include <variant>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

constexpr const char* noType255 = "the type must be a number from 0 to 255";
constexpr const char* noType46 = "the type must be a number from 0 to 46";
constexpr const char* noKey = "the key must be a number from 0 to 4294967295";
constexpr const char* noLcd = "the LCD must be a number from 0 to 65535";
constexpr const char* noPlace = "the place must be a bus and ports, such as 1-4.2, or 'all'";
constexpr const char* reserved =
    "records of this type make pictures and firmware upgrades, which have topics of their own";
constexpr const char* noCommand = "there is no such command; there are do/send/TYPE, do/set/TYPE/KEY, do/draw/LCD, "
                                  "do/flash, do/stats and do/forget";
constexpr const char* noWish = "there is no such wish; there are want/TYPE/KEY and want/lcd/LCD";
constexpr const char* notOurs = "the topic is none of this host's";

Order parse(const std::string& topic)
{
    const auto parsed = Order::parse(topic, "shop");
    if (const auto* const answer = std::get_if<Answer>(&parsed)) {
        ADD_FAILURE() << topic << ": " << answer->reason;
        return {};
    }
    return std::get<Order>(parsed);
}

void expectNone(const std::string& topic, const std::string& reason)
{
    const auto parsed = Order::parse(topic, "shop");
    const auto* const answer = std::get_if<Answer>(&parsed);
    ASSERT_NE(answer, nullptr) << topic;
    EXPECT_EQ(answer->word, Answer::Word::Refused) << topic;
    EXPECT_EQ(answer->reason, reason) << topic;
}

} // namespace

TEST(Order, send_hasTypeAndPlace)
{
    const Order order = parse("panel/1/shop/1-4.2/do/send/255");
    EXPECT_EQ(order.verb, Order::Verb::Send);
    EXPECT_EQ(order.place, "1-4.2");
    EXPECT_EQ(order.number, 255);
    EXPECT_EQ(order.key, std::nullopt);
    EXPECT_FALSE(order.isWish);
    EXPECT_FALSE(order.isForEveryHost);
}

TEST(Order, set_hasTypeAndKey)
{
    const Order order = parse("panel/1/shop/1-4/do/set/45/4294967295");
    EXPECT_EQ(order.verb, Order::Verb::Set);
    EXPECT_EQ(order.number, 45);
    EXPECT_EQ(order.key, 4294967295u);
    EXPECT_FALSE(order.isWish);
}

TEST(Order, draw_hasLcd)
{
    const Order order = parse("panel/1/shop/1-4/do/draw/65535");
    EXPECT_EQ(order.verb, Order::Verb::Draw);
    EXPECT_EQ(order.number, 65535);
    EXPECT_EQ(order.key, std::nullopt);
}

TEST(Order, commandsWithoutNumber_areKnown)
{
    EXPECT_EQ(parse("panel/1/shop/1-4/do/flash").verb, Order::Verb::Flash);
    EXPECT_EQ(parse("panel/1/shop/1-4/do/stats").verb, Order::Verb::Stats);
    EXPECT_EQ(parse("panel/1/shop/1-4/do/forget").verb, Order::Verb::Forget);
}

TEST(Order, wishes_areAboutWhatTheCommandIsAbout)
{
    const Order record = parse("panel/1/shop/1-4/want/5/7");
    EXPECT_TRUE(record.isWish);
    EXPECT_EQ(record.getSubject(), parse("panel/1/shop/1-4/do/set/5/7").getSubject());
    const Order picture = parse("panel/1/shop/1-4/want/lcd/7");
    EXPECT_TRUE(picture.isWish);
    EXPECT_EQ(picture.getSubject(), parse("panel/1/shop/1-4/do/draw/7").getSubject());
}

TEST(Order, subjects_differInEachOfTheirParts)
{
    const auto subject = parse("panel/1/shop/1-4/want/5/7").getSubject();
    EXPECT_NE(subject, parse("panel/1/shop/1-4/want/6/7").getSubject());
    EXPECT_NE(subject, parse("panel/1/shop/1-4/want/5/8").getSubject());
    EXPECT_NE(parse("panel/1/shop/1-4/want/5/0").getSubject(), parse("panel/1/shop/1-4/want/lcd/5").getSubject());
}

TEST(Order, all_isEveryPlaceAndEveryHost)
{
    const Order here = parse("panel/1/shop/all/do/send/5");
    EXPECT_EQ(here.place, "");
    EXPECT_FALSE(here.isForEveryHost);
    const Order fleet = parse("panel/1/all/all/want/lcd/0");
    EXPECT_EQ(fleet.place, "");
    EXPECT_TRUE(fleet.isForEveryHost);
    EXPECT_EQ(parse("panel/1/all/1-4/do/send/5").place, "1-4");
}

TEST(Order, types_endAt255And46)
{
    expectNone("panel/1/shop/1-4/do/send/256", noType255);
    EXPECT_EQ(parse("panel/1/shop/1-4/do/send/47").number, 47);
    expectNone("panel/1/shop/1-4/do/set/47/0", noType46);
    expectNone("panel/1/shop/1-4/want/47/0", noType46);
    EXPECT_EQ(parse("panel/1/shop/1-4/want/0/0").number, 0);
}

TEST(Order, typesOfPicturesAndUpgrades_areRefused)
{
    for (const char* const type : {"38", "41", "44", "46"}) {
        expectNone(std::string("panel/1/shop/1-4/do/send/") + type, reserved);
        expectNone(std::string("panel/1/shop/1-4/do/set/") + type + "/1", reserved);
        expectNone(std::string("panel/1/shop/1-4/want/") + type + "/1", reserved);
    }
    for (const char* const type : {"37", "39", "40", "42", "43", "45"})
        parse(std::string("panel/1/shop/1-4/do/send/") + type);
}

TEST(Order, keysAndLcds_endWhereTheyEnd)
{
    expectNone("panel/1/shop/1-4/do/set/5/4294967296", noKey);
    expectNone("panel/1/shop/1-4/do/set/5/", noKey);
    expectNone("panel/1/shop/1-4/want/5/x", noKey);
    expectNone("panel/1/shop/1-4/do/draw/65536", noLcd);
    expectNone("panel/1/shop/1-4/want/lcd/-1", noLcd);
}

TEST(Order, numbersThatHaveAnotherForm_areRefused)
{
    for (const char* const number :
         {"", "+5", "-5", " 5", "5 ", "05", "00", "5x", "0x5", "5.0", "1e1", "99999999999999999999"})
        expectNone(std::string("panel/1/shop/1-4/do/send/") + number, noType255);
}

TEST(Order, unknownCommandsAndWishes_nameTheKnown)
{
    for (const char* const rest : {"", "send", "send/", "send/5/6", "set/5", "set/5/6/7", "draw", "draw/0/1", "flash/",
                                   "stats/1", "forget/x", "Send/5"}) {
        const std::string topic = std::string("panel/1/shop/1-4/do/") + rest;
        expectNone(topic, std::string(rest) == "send/" ? noType255 : noCommand);
    }
    for (const char* const rest : {"", "5", "lcd", "5/6/7", "lcd/1/2"})
        expectNone(std::string("panel/1/shop/1-4/want/") + rest, noWish);
}

TEST(Order, topicsOfOthers_areNone)
{
    for (const char* const topic :
         {"", "panel", "panel/1/", "panel/1/shop", "panel/1/shop/1-4", "panel/1/shop/1-4/do",
          "panel/2/shop/1-4/do/send/5", "panel/1/shops/1-4/do/send/5", "panel/1/SHOP/1-4/do/send/5",
          "/panel/1/shop/1-4/do/send/5", "panel/1//1-4/do/send/5"})
        expectNone(topic, notOurs);
    expectNone("panel/1/shop/1-4/did/send/5", "a command is below do/, a wish below want/");
}

TEST(Order, place_isABusAndPorts)
{
    for (const char* const place : {"1-4", "1-4.2", "255-255.255", "0-0", "1-1.2.3.4.5.6.7"})
        EXPECT_TRUE(isPlace(place)) << place;
    for (const char* const place : {"", "1", "-", "1-", "-4", "1-4.", "1-.4", "1-4..2", "256-1", "1-256", "1-04",
                                    "1-4-2", "1.4", "a-1", "1-4 ", "all", "1-1.1.1.1.1.1.1.1.1.1.1.1.1.1.1.1"})
        EXPECT_FALSE(isPlace(place)) << place;
    EXPECT_TRUE(isPlace("1-10.1.1.1.1.1.1.1.1.1.1.1.1.1.1"));   // 32 characters
    EXPECT_FALSE(isPlace("1-100.1.1.1.1.1.1.1.1.1.1.1.1.1.1")); // 33
    expectNone("panel/1/shop/1_4/do/send/5", noPlace);
    expectNone("panel/1/shop//do/send/5", noPlace);
}

TEST(Order, hostName_isOneLevelWithoutSurprises)
{
    for (const char* const host : {"a", "shop-17", "Shop_17.example", "0", "all1", "All"})
        EXPECT_TRUE(isHostName(host)) << host;
    for (const char* const host : {"", "all", "a/b", "a b", "a+", "#", "caf\xc3\xa9", "$SYS"})
        EXPECT_FALSE(isHostName(host)) << host;
    EXPECT_TRUE(isHostName(std::string(64, 'z')));
    EXPECT_FALSE(isHostName(std::string(65, 'z')));
    EXPECT_TRUE(isHostName("AZaz09"));
    EXPECT_FALSE(isHostName("a@b"));
    EXPECT_FALSE(isHostName("a`b"));
    EXPECT_FALSE(isHostName("a{b"));
    EXPECT_FALSE(isHostName("a[b"));
    EXPECT_FALSE(isHostName("a:b"));
}

} // namespace Vantor
