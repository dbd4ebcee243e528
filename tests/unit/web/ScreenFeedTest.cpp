#include "simulator/web/ScreenFeed.h"

#include "tests/unit/web/WebBus.h"

#include <atomic>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

using namespace std::chrono_literals;
using testing::HasSubstr;

// LCD 0 has 8 by 2 pixels. Nobody listens, so that everything is taken when the test says so.
class ScreenFeedTest : public testing::Test {
protected:
    ScreenFeedTest() { m_bus.plug(0); }

    ScreenFeed::Lives lives() const
    {
        ScreenFeed::Lives lives;
        for (const PanelBoard::Panel& panel : m_board.getPanels())
            lives[panel.number] = panel.life;
        return lives;
    }

    // Of LCD 0; the rest is empty.
    std::string nextText()
    {
        std::string text;
        for (const ScreenFeed::Update& update : m_feed.getUpdates(m_seen, lives())) {
            m_seen[update.place] = update.number;
            text += *update.text;
        }
        return text;
    }

    std::vector<std::uint32_t> pixels() { return m_feed.getPicture({0, 0})->getPixels(); }

    PanelBoard m_board;
    WebBus m_bus{m_board, {{0, {8, 2}}}};
    ScreenFeed m_feed{m_board, m_bus.getUse()};
    ScreenFeed::Seen m_seen;
};

TEST_F(ScreenFeedTest, whatChanges_isToldInParts)
{
    m_feed.refresh();
    EXPECT_THAT(nextText(), HasSubstr("\"x\":0,\"y\":0,\"columns\":8,\"rows\":2,\"colours\":[\"#ffffff\"]"));
    EXPECT_EQ(nextText(), "");
    m_bus.draw(0, 0, 2, 1, 4, 1, {0x60}); // 0110: only whole bytes are of use, so 4 pixels have none
    m_bus.draw(0, 0, 0, 1, 8, 1, {0x3C});
    m_feed.refresh();
    EXPECT_EQ(
        nextText(),
        "{\"panel\":0,\"lcd\":0,\"width\":8,\"height\":2,\"slices\":1,\"bytes\":8,"
        "\"layer\":{\"time\":0.0,\"encoding\":\"raw\",\"bitsPerPixel\":1,\"x\":0,\"y\":1,\"width\":8,\"height\":1,"
        "\"slices\":1,\"bytes\":8},"
        "\"x\":0,\"y\":1,\"columns\":8,\"rows\":1,\"colours\":[\"#ffffff\",\"#000000\"],\"bits\":\"PA==\"}");
    EXPECT_EQ(pixels()[8 + 2], PanelScreen::black);
    EXPECT_EQ(pixels()[8 + 1], PanelScreen::white);
}

TEST_F(ScreenFeedTest, listenerWhoIsLate_isToldTheWholePicture)
{
    m_feed.refresh();
    nextText();
    m_bus.draw(0, 0, 0, 0, 8, 1, {0xFF});
    m_feed.refresh();
    m_bus.draw(0, 0, 0, 1, 8, 1, {0x0F});
    m_feed.refresh();
    // 8 black pixels, then 4 white and 4 black.
    EXPECT_THAT(
        nextText(),
        HasSubstr("\"x\":0,\"y\":0,\"columns\":8,\"rows\":2,\"colours\":[\"#000000\",\"#ffffff\"],\"bits\":\"APA=\""));
}

TEST_F(ScreenFeedTest, pictureOfAPanelThatWasReplaced_isNotTold)
{
    m_bus.draw(0, 0, 0, 0, 8, 1, {0xFF});
    m_feed.refresh();
    m_bus.plug(0);
    EXPECT_EQ(nextText(), "") << "its panel is another one by now";
    m_feed.refresh();
    EXPECT_THAT(nextText(), HasSubstr("\"columns\":8,\"rows\":2,\"colours\":[\"#ffffff\"]"));
    EXPECT_EQ(pixels()[0], PanelScreen::white);
}

TEST_F(ScreenFeedTest, lcdOfAnEarlierLife_isNoneUntilItIsDrawnOn)
{
    m_bus.draw(0, 7, 0, 0, 8, 1, {0xFF});
    m_feed.refresh();
    EXPECT_TRUE(m_feed.getPicture({0, 7}));
    m_bus.unplug(0);
    m_feed.refresh();
    EXPECT_TRUE(m_feed.getPicture({0, 7})) << "what it showed last";
    m_bus.plug(0);
    m_feed.refresh();
    EXPECT_FALSE(m_feed.getPicture({0, 7}));
    EXPECT_FALSE(m_feed.getAnimation({0, 7}));
    m_bus.draw(0, 7, 0, 1, 8, 1, {0xFF});
    m_feed.refresh();
    EXPECT_EQ(m_feed.getPicture({0, 7})->getPixel(0, 0), PanelScreen::white);
    EXPECT_EQ(m_feed.getPicture({0, 7})->getPixel(0, 1), PanelScreen::black);
}

TEST(ScreenFeed, lcdOfAnEarlierLifeWithoutNewOnes_isNone)
{
    PanelBoard board;
    WebBus bus(board);
    ScreenFeed feed(board, bus.getUse());
    bus.plug(0);
    bus.draw(0, 7, 0, 0, 8, 1, {0xFF});
    feed.refresh();
    EXPECT_TRUE(feed.getPicture({0, 7}));
    bus.plug(0);
    feed.refresh();
    EXPECT_FALSE(feed.getPicture({0, 7}));
}

TEST_F(ScreenFeedTest, pictureOfAPanelThatIsNotToldYet_waits)
{
    const ScreenFeed::Lives old = lives();
    m_bus.plug(0);
    m_feed.refresh();
    EXPECT_TRUE(m_feed.getUpdates({}, old).empty());
    EXPECT_EQ(m_feed.getUpdates({}, lives()).size(), 1U);
    EXPECT_TRUE(m_feed.getUpdates({}, {}).empty());
}

TEST_F(ScreenFeedTest, lcdThatThereIsNot_hasNoPicture)
{
    m_feed.refresh();
    EXPECT_FALSE(m_feed.getPicture({0, 1}));
    EXPECT_FALSE(m_feed.getPicture({1, 0}));
    EXPECT_FALSE(m_feed.getAnimation({0, 1}));
}

TEST_F(ScreenFeedTest, animation_hasEachPictureThatWasTaken)
{
    m_board.begin();
    m_feed.refresh();
    m_bus.draw(0, 0, 0, 0, 8, 1, {0xFF});
    m_feed.refresh();
    m_bus.draw(0, 0, 0, 0, 8, 1, {0x0F});
    m_feed.refresh();
    const auto animation = m_feed.getAnimation({0, 0});
    ASSERT_TRUE(animation);
    ASSERT_EQ(animation->frames.size(), 3U);
    EXPECT_EQ(animation->frames[0].screen.getPixel(0, 0), PanelScreen::white);
    EXPECT_EQ(animation->frames[1].screen.getPixel(0, 0), PanelScreen::black);
    EXPECT_EQ(animation->frames[2].screen.getPixel(0, 0), PanelScreen::white);
    EXPECT_EQ(animation->frames[2].screen.getPixel(4, 0), PanelScreen::black);
    EXPECT_LT(animation->frames[0].time, animation->frames[1].time);
    EXPECT_LT(animation->frames[1].time, animation->frames[2].time);
    EXPECT_LT(animation->frames[2].time, animation->end);
}

TEST_F(ScreenFeedTest, counters_areThoseOfThePanel)
{
    m_bus.send(0, 5, {3, 4});
    m_feed.refresh();
    const AllReadings readings = m_feed.getReadings();
    ASSERT_EQ(readings.size(), 1U);
    EXPECT_EQ(readings.at(0).packetsOut, 1U);
    EXPECT_EQ(readings.at(0).bytesOut, 13U);
    EXPECT_EQ(readings.at(0).recordsOut, 1U);
}

TEST_F(ScreenFeedTest, somebodyListens_isTakenWithoutBeingAsked)
{
    const ScreenFeed::Listening listening(m_feed);
    const std::uint64_t first = m_feed.await(0, 60s);
    m_bus.draw(0, 0, 0, 0, 8, 1, {0xFF});
    std::uint64_t takes = first;
    const auto end = std::chrono::steady_clock::now() + 60s;
    while (m_feed.getPicture({0, 0})->getPixel(0, 0) != PanelScreen::black && std::chrono::steady_clock::now() < end)
        takes = m_feed.await(takes, 1s);
    EXPECT_EQ(pixels()[0], PanelScreen::black);
}

TEST_F(ScreenFeedTest, end_takesTheLastPictureAndWaitsForNothing)
{
    const ScreenFeed::Listening listening(m_feed);
    m_bus.draw(0, 0, 0, 0, 8, 1, {0xFF});
    m_feed.end();
    EXPECT_TRUE(m_feed.hasEnded());
    EXPECT_EQ(pixels()[0], PanelScreen::black);
    m_feed.await(UINT64_MAX, 3600s);
}

} // namespace Vantor
