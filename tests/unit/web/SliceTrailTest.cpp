#include "simulator/web/SliceTrail.h"

#include <gtest/gtest.h>

namespace Vantor {

using namespace std::chrono_literals;

class SliceTrailTest : public testing::Test {
protected:
    void add(std::uint8_t x, std::uint8_t y, std::uint8_t width, std::uint8_t rows,
             PacketType type = PacketType::LcdSlice, std::uint8_t bitsPerPixel = 1)
    {
        m_time += 1ms;
        m_trail.add(m_time, type, {0, x, y, width, rows, bitsPerPixel, {}}, 100);
    }

    std::uint64_t numberAt(unsigned int x, unsigned int y) const
    {
        const auto mark = m_trail.find(x, y);
        return mark ? mark->number : UINT64_MAX;
    }

    SliceTrail m_trail;
    std::chrono::nanoseconds m_time{0};
};

TEST_F(SliceTrailTest, slicesThatGoOn_areOneLayer)
{
    add(8, 0, 72, 30);
    add(8, 30, 72, 30);
    add(8, 60, 72, 12);
    ASSERT_TRUE(m_trail.getLayer());
    const SliceTrail::Layer& layer = *m_trail.getLayer();
    EXPECT_EQ(layer.time, 3ms);
    EXPECT_FALSE(layer.isEncoded);
    EXPECT_EQ(layer.bitsPerPixel, 1U);
    EXPECT_EQ(layer.x, 8U);
    EXPECT_EQ(layer.y, 0U);
    EXPECT_EQ(layer.width, 72U);
    EXPECT_EQ(layer.height, 72U);
    EXPECT_EQ(layer.slices, 3U);
    EXPECT_EQ(layer.bytes, 300U);
    EXPECT_EQ(m_trail.getSlices(), 3U);
    EXPECT_EQ(m_trail.getBytes(), 300U);
}

TEST_F(SliceTrailTest, sliceElsewhereOrOtherwise_beginsALayer)
{
    add(8, 0, 72, 30);
    add(8, 0, 72, 30); // the same again
    EXPECT_EQ(m_trail.getLayer()->slices, 1U);
    add(9, 30, 72, 30);
    EXPECT_EQ(m_trail.getLayer()->slices, 1U);
    add(9, 60, 71, 30);
    EXPECT_EQ(m_trail.getLayer()->slices, 1U);
    add(9, 90, 71, 30, PacketType::EncodedLcdSlice);
    EXPECT_TRUE(m_trail.getLayer()->isEncoded);
    EXPECT_EQ(m_trail.getLayer()->slices, 1U);
    add(9, 120, 71, 30, PacketType::EncodedLcdSlice, 8);
    EXPECT_EQ(m_trail.getLayer()->slices, 1U);
    EXPECT_EQ(m_trail.getLayer()->y, 120U);
    add(9, 150, 71, 30, PacketType::EncodedLcdSlice, 8);
    EXPECT_EQ(m_trail.getLayer()->slices, 2U);
}

TEST_F(SliceTrailTest, severalOverAPixel_lastIsFound)
{
    add(0, 0, 10, 10);
    add(5, 5, 10, 10);
    EXPECT_EQ(numberAt(4, 4), 0U);
    EXPECT_EQ(numberAt(5, 5), 1U);
    EXPECT_EQ(numberAt(9, 9), 1U);
    EXPECT_EQ(numberAt(14, 14), 1U);
    EXPECT_FALSE(m_trail.find(15, 14));
    EXPECT_FALSE(m_trail.find(14, 15));
    EXPECT_FALSE(m_trail.find(10, 4));
}

TEST_F(SliceTrailTest, onePlaceAgainAndAgain_leavesTheOthersKnown)
{
    add(0, 0, 100, 100);
    for (std::size_t i = 0; i < 3 * SliceTrail::capacity; ++i)
        add(50, 50, 8, 8);
    EXPECT_EQ(numberAt(10, 10), 0U);
    EXPECT_EQ(numberAt(50, 50), 3 * SliceTrail::capacity);
}

TEST_F(SliceTrailTest, tooManyPlaces_oldestIsForgotten)
{
    add(200, 200, 1, 1);
    for (std::size_t i = 0; i < SliceTrail::capacity; ++i)
        add(static_cast<std::uint8_t>(i % 128), static_cast<std::uint8_t>(i / 128), 1, 1);
    EXPECT_FALSE(m_trail.find(200, 200));
    EXPECT_EQ(numberAt(127, SliceTrail::capacity / 128 - 1), SliceTrail::capacity);
    EXPECT_EQ(m_trail.getSlices(), SliceTrail::capacity + 1);
}

} // namespace Vantor
