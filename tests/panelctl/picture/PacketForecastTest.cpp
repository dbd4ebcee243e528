#include "panelctl/picture/PacketForecast.h"
#include "panelctl/picture/GreyPicture.h"

#include <gtest/gtest.h>

namespace Vantor {

namespace {

using Form = LcdPicture::Form;

DeviceInformation withLimit(std::uint16_t limit)
{
    DeviceInformation information{};
    information.maxPacketSize = limit;
    return information;
}

std::vector<ClientLcdBitmap> layersOf(const GreyPicture& picture, Form form)
{
    return picture.makeLayers(0, 0, 0, form);
}

// A row of it has `runs` runs, an odd number.
GreyPicture stripes(unsigned int runs, unsigned int height)
{
    GreyPicture picture(255, height);
    for (unsigned int y = 0; y < height; ++y)
        for (unsigned int x = 1; x + 1 < runs; x += 2)
            picture.set(x, y, 0);
    return picture;
}

} // namespace

TEST(PacketForecast, wholeScreen_takesThreeSmallPackets)
{
    // 60 rows of 18 bytes fit (1100 - 8 - 10) bytes; 10 bytes of slice and 8 of packet header each.
    const PacketForecast forecast(withLimit(0), layersOf(GreyPicture(144, 168), Form::Raw));
    EXPECT_TRUE(forecast.isComplete());
    EXPECT_EQ(forecast.getPackets(), 3U);
    EXPECT_EQ(forecast.getBytes(), 1098U + 1098U + 882U);
    EXPECT_EQ(forecast.getEnds(), (std::vector<std::uint64_t>{1098, 2196, 3078}));
}

TEST(PacketForecast, twoLayers_shareAPacket)
{
    const PacketForecast forecast(withLimit(8192), layersOf(GreyPicture(12, 2), Form::Raw));
    EXPECT_TRUE(forecast.isComplete());
    EXPECT_EQ(forecast.getPackets(), 1U);
    EXPECT_EQ(forecast.getBytes(), 8U + 2 * (10 + 2));
}

TEST(PacketForecast, runLengthWords_areCountedInWords)
{
    const PacketForecast forecast(withLimit(8192), layersOf(GreyPicture(8, 3), Form::RunLength));
    EXPECT_EQ(forecast.getPackets(), 1U);
    EXPECT_EQ(forecast.getBytes(), 8U + 10 + 3 * 8);
}

// 1025 - 8 bytes are left; the next row's marker must be found up to offset 1004.
TEST(PacketForecast, rowTooLongForASlice_neverLeaves)
{
    EXPECT_TRUE(PacketForecast(withLimit(1025), layersOf(stripes(249, 2), Form::RunLength)).isComplete());
    EXPECT_FALSE(PacketForecast(withLimit(1025), layersOf(stripes(251, 2), Form::RunLength)).isComplete());
    EXPECT_TRUE(PacketForecast(withLimit(1100), layersOf(stripes(255, 40), Form::RunLength)).isComplete());
}

// 255 runs and the marker are 256 words; 8, 3 and 7 bytes of headers, and one to spare.
TEST(PacketForecast, neededLimit_isTheLeastThatWillDo)
{
    EXPECT_EQ(PacketForecast::findNeededLimit(layersOf(stripes(255, 40), Form::RunLength)), 1024U + 19);
    EXPECT_EQ(PacketForecast::findNeededLimit(layersOf(stripes(249, 2), Form::RunLength)), 1025U);
    ClientLcdBitmap empty(8, 8, 1);
    empty.buffer.clear();
    empty.encoded = 1;
    EXPECT_EQ(PacketForecast::findNeededLimit({empty}), 0U);
}

TEST(PacketForecast, longestRow_isTheOneWithMostRuns)
{
    GreyPicture picture(5, 3);
    picture.set(1, 1, 0);
    picture.set(3, 1, 0);
    picture.set(4, 2, 0);
    EXPECT_EQ(PacketForecast::getLongestRow(layersOf(picture, Form::RunLength).front()), 24U);
}

TEST(PacketForecast, nothing_takesNothing)
{
    const PacketForecast forecast(withLimit(8192), {});
    EXPECT_TRUE(forecast.isComplete());
    EXPECT_EQ(forecast.getBytes(), 0U);
    EXPECT_TRUE(forecast.getEnds().empty());
}

} // namespace Vantor
