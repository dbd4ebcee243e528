// flattenLcdImage works on a copy of the layers, whatever they look like: what is
// stored and what is sent stay as they are.

#include "libMorvaneHostUsb/PriorityPacker.h"

#include "tests/support/PackedBytes.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/Random.h"
#include "tests/support/Seeds.h"

#include <gtest/gtest.h>

namespace Vantor {

struct FlattenedLcdData {
    friend auto& reach(FlattenedLcdData, PriorityPacker& packer);
};
template struct PrivateMember<FlattenedLcdData, PriorityPacker, &PriorityPacker::m_lcdData>;

namespace {

ClientLcdBitmap layer(int x, int y, int width, int height, int depth)
{
    ClientLcdBitmap bitmap(static_cast<unsigned char>(width), static_cast<unsigned char>(height),
                           static_cast<unsigned char>(depth));
    bitmap.lcd = 1;
    bitmap.x = static_cast<std::uint8_t>(x);
    bitmap.y = static_cast<std::uint8_t>(y);
    for (std::size_t i = 0; i < bitmap.size(); ++i)
        bitmap.buffer[i] = static_cast<std::uint8_t>(i * 7 + 1);
    return bitmap;
}

ClientLcdBitmap withBuffer(ClientLcdBitmap bitmap, std::size_t size)
{
    bitmap.buffer.resize(size);
    return bitmap;
}

std::list<ClientLcdBitmap>& layersOf(PriorityPacker& packer)
{
    return reach(FlattenedLcdData{}, packer)[1].bitmaps;
}

void expectSame(const ClientLcdBitmap& bitmap, const ClientLcdBitmap& before)
{
    EXPECT_EQ(bitmap.x, before.x);
    EXPECT_EQ(bitmap.y, before.y);
    EXPECT_EQ(bitmap.width, before.width);
    EXPECT_EQ(bitmap.height, before.height);
    EXPECT_EQ(bitmap.bitsPerPixel, before.bitsPerPixel);
    EXPECT_EQ(bitmap.encoded, before.encoded);
    EXPECT_TRUE(bitmap.buffer == before.buffer);
}

// The layers after they were drawn and flattened; they do not cover one another.
void expectUntouched(const std::vector<ClientLcdBitmap>& layers)
{
    PriorityPacker packer(1000);
    for (const ClientLcdBitmap& bitmap : layers)
        layersOf(packer).push_back(bitmap);
    packer.flattenLcdImage(1);
    ASSERT_EQ(layersOf(packer).size(), layers.size());
    auto stored = layersOf(packer).begin();
    for (const ClientLcdBitmap& before : layers)
        expectSame(*stored++, before);
}

// All that leaves the packer.
std::vector<Bytes> sent(PriorityPacker& packer)
{
    std::vector<Bytes> packets;
    for (;;) {
        packer.clearData();
        if (packer.prepareNextPacket() == 0)
            return packets;
        packets.push_back(packetOf(packer));
    }
}

class CountingObserver : public PriorityPacker::Observer {
public:
    void onPackerHasChanged() override { ++m_calls; }

    int m_calls = 0;
};

} // namespace

TEST(FlattenLcdImage, flattenOfTwoLayers_leavesBothAndThePackets)
{
    PriorityPacker flattened(60);
    PriorityPacker plain(60);
    for (PriorityPacker* packer : {&flattened, &plain}) {
        packer->drawBitmapData(layer(2, 3, 16, 16, 8));
        packer->drawBitmapData(layer(10, 12, 16, 16, 8));
    }
    flattened.flattenLcdImage(1);
    EXPECT_EQ(layersOf(flattened).size(), 2u);
    const std::vector<Bytes> expected = sent(plain);
    EXPECT_GT(expected.size(), 2u);
    EXPECT_EQ(sent(flattened), expected);
}

TEST(FlattenLcdImage, flattenOfAHalfSentLayer_leavesItsCursor)
{
    PriorityPacker packer(8 + 10 + 16);
    packer.drawBitmapData(layer(0, 0, 8, 8, 8));
    packer.prepareNextPacket();
    ASSERT_EQ(layersOf(packer).front().rowOffset, 2);
    packer.flattenLcdImage(1);
    EXPECT_EQ(layersOf(packer).front().rowOffset, 2);
    EXPECT_EQ(layersOf(packer).front().byteOffset, 16u);
}

TEST(FlattenLcdImage, flattenOfAnUnseenLcd_makesNoEntry)
{
    PriorityPacker packer(100);
    packer.flattenLcdImage(9);
    EXPECT_EQ(reach(FlattenedLcdData{}, packer).count(9), 0u);
}

TEST(FlattenLcdImage, flattenOfAnLcdWithoutLayers_doesNothing)
{
    PriorityPacker packer(100);
    packer.lockLcd(1);
    packer.flattenLcdImage(1);
    EXPECT_TRUE(layersOf(packer).empty());
    EXPECT_TRUE(reach(FlattenedLcdData{}, packer)[1].locked);
    EXPECT_FALSE(packer.hasMoreData());
}

TEST(FlattenLcdImage, flatten_notifiesNobody)
{
    PriorityPacker packer(100);
    packer.drawBitmapData(layer(0, 0, 8, 8, 8));
    CountingObserver observer;
    packer.setObserver(&observer);
    packer.flattenLcdImage(1);
    EXPECT_EQ(observer.m_calls, 0);
}

TEST(FlattenLcdImage, flattenOfEveryDepth_leavesTheLayers)
{
    for (int depth = 0; depth <= 255; ++depth)
        expectUntouched({layer(3, 5, 9, 7, depth), layer(30, 20, 5, 5, depth)});
}

// A 24-bit layer makes the others be read at 24 bits, which they have not got.
TEST(FlattenLcdImage, flattenOfMixedDepths_readsNothingOutsideTheLayers)
{
    expectUntouched({layer(0, 0, 33, 21, 1), layer(10, 10, 33, 21, 8), layer(50, 5, 33, 21, 12),
                     layer(5, 50, 33, 21, 16), layer(90, 90, 33, 21, 24), layer(9, 9, 10, 10, 200)});
}

TEST(FlattenLcdImage, flattenOfShortBuffers_readsNothingOutsideThem)
{
    expectUntouched({withBuffer(layer(0, 0, 200, 200, 8), 0), withBuffer(layer(5, 5, 200, 200, 12), 1),
                     withBuffer(layer(9, 9, 200, 200, 16), 399), withBuffer(layer(20, 20, 200, 200, 24), 119999)});
}

TEST(FlattenLcdImage, flattenOfLayersWithoutPixels_doesNothing)
{
    expectUntouched({layer(0, 0, 0, 0, 8)});
    expectUntouched({layer(7, 9, 0, 5, 8), layer(9, 7, 5, 0, 24)});
    expectUntouched({layer(250, 250, 0, 0, 16)});
}

// Column and row 240 stand for everything beyond.
TEST(FlattenLcdImage, flattenOfLayersBeyond240_startsAt240)
{
    expectUntouched({layer(250, 250, 20, 20, 24)});
    expectUntouched({layer(241, 0, 1, 1, 24)});
    expectUntouched({layer(255, 255, 255, 255, 16), layer(254, 254, 1, 1, 8)});
}

// 0 to 256 is a width of 0, and 0 to 510 one of 254.
TEST(FlattenLcdImage, flattenOfMoreThan255Columns_cutsTheSizeTo8Bits)
{
    expectUntouched({layer(0, 0, 255, 1, 8), layer(1, 0, 255, 1, 8)});
    expectUntouched({layer(0, 0, 255, 255, 24), layer(255, 255, 255, 255, 24)});
    expectUntouched({layer(0, 0, 1, 255, 12), layer(0, 100, 1, 255, 12)});
}

// Beyond pixel 21,845 the flattened image's own index wraps.
TEST(FlattenLcdImage, flattenOfALarge24BitImage_staysInside)
{
    expectUntouched({layer(0, 0, 255, 255, 24), layer(0, 0, 255, 255, 24)});
}

TEST(FlattenLcdImage, flattenOfEncodedLayers_readsThemAsPixels)
{
    ClientLcdBitmap encoded = withBuffer(layer(0, 0, 100, 100, 24), 8);
    encoded.encoded = 1;
    encoded.encodedSize = 4000;
    expectUntouched({encoded, layer(50, 50, 10, 10, 12)});
}

TEST(FlattenLcdImage, flattenOfRandomLayers_leavesThem)
{
    runSeeds(1, [](unsigned int seed) {
        Random random(seed);
        const auto byte = [&random] { return static_cast<int>(random.below(256)); };
        for (int round = 0; round < 200 && !HasFailure(); ++round) {
            SCOPED_TRACE(testing::Message() << "round " << round);
            std::vector<ClientLcdBitmap> layers;
            for (int i = byte() % 4; i >= 0; --i) {
                const int depths[] = {0, 1, 2, 8, 12, 16, 24, 32};
                layers.push_back(layer(byte(), byte(), byte(), byte(), depths[byte() % 8]));
                layers.back().buffer.resize(static_cast<std::size_t>(byte()) * 17);
            }
            expectUntouched(layers);
        }
    });
}

} // namespace Vantor
