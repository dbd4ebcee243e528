#include "panel2mqtt/desk/WishBook.h"

#include <string>
#include <variant>

#include <malloc.h>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

Order wishOrder(const std::string& topic)
{
    return std::get<Order>(Order::parse(topic, "shop"));
}

class WishBookTest : public testing::Test {
protected:
    bool put(const std::string& topic, std::string payload)
    {
        Message message;
        message.topic = topic;
        message.payload = std::move(payload);
        message.isRetained = true;
        return m_book.put(wishOrder(topic), std::move(message));
    }
    std::string find(const std::string& place, const std::string& topic = "panel/1/shop/all/want/5/7") const
    {
        const WishBook::Wish* const wish = m_book.find(place, wishOrder(topic).getSubject());
        return wish != nullptr ? wish->message.payload : "none";
    }
    std::uint64_t serialOf(const std::string& place) const
    {
        return m_book.find(place, wishOrder("panel/1/shop/all/want/5/7").getSubject())->serial;
    }

    WishBook m_book;
};

} // namespace

TEST_F(WishBookTest, ofFourLevels_thePlaceWinsThenTheHost)
{
    EXPECT_EQ(find("1-4"), "none");
    put("panel/1/all/all/want/5/7", "fleet");
    EXPECT_EQ(find("1-4"), "fleet");
    put("panel/1/all/1-4/want/5/7", "fleet's place");
    EXPECT_EQ(find("1-4"), "fleet's place");
    EXPECT_EQ(find("1-5"), "fleet");
    put("panel/1/shop/1-4/want/5/7", "place");
    EXPECT_EQ(find("1-4"), "place");
    put("panel/1/shop/1-4/want/5/7", "");
    EXPECT_EQ(find("1-4"), "fleet's place");
}

// docs/mqtt.md: the one that names the place wins, then the one that names the host.
TEST_F(WishBookTest, placeOfEveryHost_winsOverEveryPlaceOfThisHost)
{
    put("panel/1/shop/all/want/5/7", "host");
    EXPECT_EQ(find("1-4"), "host");
    put("panel/1/all/1-4/want/5/7", "place");
    EXPECT_EQ(find("1-4"), "place");
    EXPECT_EQ(find("1-5"), "host");
    put("panel/1/all/all/want/5/7", "fleet");
    EXPECT_EQ(find("1-5"), "host");
}

TEST_F(WishBookTest, subjects_areThoseOfThePlaceAndOfAll)
{
    put("panel/1/shop/1-4/want/5/7", "a");
    put("panel/1/shop/all/want/5/7", "b");
    put("panel/1/shop/1-5/want/5/8", "c");
    put("panel/1/all/all/want/lcd/5", "d");
    EXPECT_EQ(m_book.getSubjects("1-4").size(), 2u);
    EXPECT_EQ(m_book.getSubjects("1-5").size(), 3u);
    EXPECT_EQ(find("1-5", "panel/1/shop/all/want/5/8"), "c");
    EXPECT_EQ(find("1-4", "panel/1/shop/all/want/5/8"), "none");
    EXPECT_EQ(find("1-4", "panel/1/shop/all/want/lcd/5"), "d");
}

TEST_F(WishBookTest, otherPayloadOrProperties_areAnotherWish)
{
    put("panel/1/shop/1-4/want/5/7", "a");
    const auto first = serialOf("1-4");
    put("panel/1/shop/1-4/want/5/7", "b");
    const auto second = serialOf("1-4");
    EXPECT_NE(first, second);
    Message message;
    message.payload = "b";
    message.userProperties.emplace_back("x", "3");
    EXPECT_TRUE(m_book.put(wishOrder("panel/1/shop/1-4/want/5/7"), message));
    EXPECT_NE(serialOf("1-4"), second);
}

TEST_F(WishBookTest, sameWishToldAnew_isTheSame)
{
    put("panel/1/shop/1-4/want/5/7", "a");
    const auto first = serialOf("1-4");
    m_book.beginTelling();
    put("panel/1/shop/1-4/want/5/7", "a");
    m_book.endTelling();
    EXPECT_EQ(serialOf("1-4"), first);
}

// Whoever publishes it again means it: a command may have overridden it.
TEST_F(WishBookTest, sameWishPublishedAgain_isAnother)
{
    put("panel/1/shop/1-4/want/5/7", "a");
    const auto first = serialOf("1-4");
    put("panel/1/shop/1-4/want/5/7", "a");
    EXPECT_NE(serialOf("1-4"), first);
}

TEST_F(WishBookTest, serials_areNeverUsedTwice)
{
    put("panel/1/shop/1-4/want/5/7", "a");
    const auto first = serialOf("1-4");
    put("panel/1/shop/1-4/want/5/7", "");
    put("panel/1/shop/1-4/want/5/7", "a");
    EXPECT_GT(serialOf("1-4"), first);
}

TEST_F(WishBookTest, whatIsNotToldAnew_isGone)
{
    put("panel/1/shop/1-4/want/5/7", "kept");
    put("panel/1/shop/1-5/want/5/7", "changed");
    put("panel/1/shop/1-6/want/5/7", "gone");
    m_book.beginTelling();
    EXPECT_EQ(find("1-6"), "gone"); // until all is told
    put("panel/1/shop/1-4/want/5/7", "kept");
    put("panel/1/shop/1-5/want/5/7", "other");
    put("panel/1/shop/1-7/want/5/7", "new");
    m_book.endTelling();
    EXPECT_EQ(find("1-4"), "kept");
    EXPECT_EQ(find("1-5"), "other");
    EXPECT_EQ(find("1-6"), "none");
    EXPECT_EQ(find("1-7"), "new");
}

TEST_F(WishBookTest, wishesBeyond4096_areNotTaken)
{
    const auto topicOf = [](int key) { return "panel/1/shop/1-4/want/5/" + std::to_string(key); };
    for (int key = 0; key < 4096; ++key)
        ASSERT_TRUE(put(topicOf(key), "v")) << key;
    EXPECT_FALSE(put(topicOf(4096), "v"));
    EXPECT_TRUE(put(topicOf(0), "w"));   // in place of another
    EXPECT_TRUE(put(topicOf(9999), "")); // takes nothing away
    EXPECT_FALSE(put(topicOf(4096), "v"));
    EXPECT_TRUE(put(topicOf(1), ""));
    EXPECT_TRUE(put(topicOf(4096), "v"));
    EXPECT_FALSE(put(topicOf(1), "v"));
    m_book.beginTelling();
    m_book.endTelling();
    EXPECT_TRUE(put(topicOf(1), "v"));
}

TEST_F(WishBookTest, wishesBeyond64MiB_areNotTaken)
{
    const std::string topic = "panel/1/shop/1-4/want/5/"; // 24 characters, and a digit
    const std::size_t quarter = (std::size_t{16} << 20) - 25;
    for (const char* const key : {"0", "1", "2"})
        ASSERT_TRUE(put(topic + key, std::string(quarter, 'v')));
    EXPECT_FALSE(put(topic + "3", std::string(quarter + 1, 'v')));
    EXPECT_TRUE(put(topic + "3", std::string(quarter, 'v')));
    EXPECT_FALSE(put(topic + "4", "v"));
    EXPECT_FALSE(put(topic + "3", std::string(quarter + 1, 'w'))); // the earlier stays
    EXPECT_EQ(find("1-4", topic + "3").size(), quarter);
    EXPECT_TRUE(put(topic + "3", std::string(quarter - 26, 'w')));
    EXPECT_TRUE(put(topic + "4", "v"));
    EXPECT_FALSE(put(topic + "5", "v"));
    m_book.beginTelling();
    m_book.endTelling();
    EXPECT_TRUE(put(topic + "5", std::string(4 * quarter, 'v')));
}

TEST_F(WishBookTest, propertiesAndWhereTheAnswerGoes_countAsBytes)
{
    const std::size_t most = std::size_t{64} << 20;
    const Order order = wishOrder("panel/1/shop/1-4/want/5/7");
    Message message;
    message.payload = std::string(most - 15, 'v');
    message.topic = "1";
    message.responseTopic = "22";
    message.correlation = "333";
    message.userProperties = {{"4444", "55555"}};
    EXPECT_TRUE(m_book.put(order, message));
    message.userProperties = {{"4444", "555555"}};
    EXPECT_FALSE(m_book.put(order, message));
}

// Nothing is counted by the address sanitizer's allocator.
TEST_F(WishBookTest, placesWithoutWishes_takeNoMemory)
{
    const std::size_t before = mallinfo2().uordblks;
    for (int i = 0; i < 10000; ++i) {
        const std::string topic =
            "panel/1/shop/1-" + std::to_string(i / 200) + "." + std::to_string(i % 200) + "/want/5/7";
        put(topic, ""); // never wished
        put(topic, "w");
        put(topic, "");
    }
    EXPECT_LT(mallinfo2().uordblks, before + 100000);
}

} // namespace Vantor
