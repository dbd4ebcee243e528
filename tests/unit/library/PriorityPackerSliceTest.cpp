#include "libMorvaneHostUsb/PriorityPacker.h"

#include "tests/support/PackedBytes.h"

#include <numeric>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

// A packer whose empty packet has `remaining` bytes free.
struct PackerWith : PriorityPacker {
    explicit PackerWith(unsigned int remaining) : PriorityPacker(8 + remaining) {}
};

// Bytes 0, 1, 2 ... 255, 0 ...
void count(ClientLcdBitmap& bitmap)
{
    std::iota(bitmap.buffer.begin(), bitmap.buffer.end(), std::uint8_t{0});
}

Bytes countedFrom(std::uint8_t first, std::size_t size)
{
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

const Bytes marker = {0xFF, 0xFF, 0xFF, 0xFF};

// A row of two run-length words.
Bytes row(std::uint8_t value)
{
    return joined({marker, {4, 0, 0, value}, {4, 0, 0, static_cast<std::uint8_t>(value + 1)}});
}

ClientLcdBitmap layerOfWords(std::uint8_t rows, const Bytes& words)
{
    ClientLcdBitmap bitmap(8, rows, 24);
    bitmap.lcd = 3;
    bitmap.encoded = 1;
    bitmap.buffer = words;
    bitmap.encodedSize = static_cast<std::uint32_t>(words.size());
    return bitmap;
}

void expectCursor(const ClientLcdBitmap& bitmap, std::uint32_t byteOffset, int rowOffset, int complete)
{
    EXPECT_EQ(bitmap.byteOffset, byteOffset);
    EXPECT_EQ(bitmap.rowOffset, rowOffset);
    EXPECT_EQ(bitmap.complete, complete);
}

} // namespace

TEST(PriorityPackerSlice, rawLayerOf128x64With100BytesFree_givesFiveRows)
{
    PackerWith packer(100);
    ClientLcdBitmap bitmap(128, 64, 1);
    bitmap.lcd = 0x0102;
    bitmap.x = 7;
    bitmap.y = 9;
    count(bitmap);
    EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 90u);
    EXPECT_EQ(packetOf(packer),
              joined({{98, 0, 1, 0, 0, 0, 0, 0, 38, 87, 0, 0x02, 0x01, 7, 9, 128, 5, 1}, countedFrom(0, 80)}));
    expectCursor(bitmap, 80, 5, 0);

    packer.clearData();
    EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 90u);
    EXPECT_EQ(packetOf(packer),
              joined({{98, 0, 1, 0, 0, 0, 0, 0, 38, 87, 0, 0x02, 0x01, 7, 14, 128, 5, 1}, countedFrom(80, 80)}));
    expectCursor(bitmap, 160, 10, 0);
}

TEST(PriorityPackerSlice, rawLayerThatFits_isOneSlice)
{
    PackerWith packer(1000);
    ClientLcdBitmap bitmap(16, 3, 1);
    count(bitmap);
    EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 16u);
    EXPECT_EQ(packetOf(packer), (Bytes{24, 0, 1, 0, 0, 0, 0, 0, 38, 13, 0, 0, 0, 0, 0, 16, 3, 1, 0, 1, 2, 3, 4, 5}));
    expectCursor(bitmap, 0, 0, 1);
}

TEST(PriorityPackerSlice, rawLastSlice_leavesTheRowOffsetAlone)
{
    PackerWith packer(10 + 4);
    ClientLcdBitmap bitmap(16, 3, 1);
    count(bitmap);
    EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 14u);
    expectCursor(bitmap, 4, 2, 0);
    packer.clearData();
    EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 12u);
    EXPECT_EQ(packetOf(packer), (Bytes{20, 0, 1, 0, 0, 0, 0, 0, 38, 9, 0, 0, 0, 0, 2, 16, 1, 1, 4, 5}));
    expectCursor(bitmap, 0, 2, 1);
}

TEST(PriorityPackerSlice, rawSlice_goesBehindTheRecordsBeforeIt)
{
    PackerWith packer(1000);
    const std::uint8_t payload[] = {0xAA};
    packer.addStructData(payload, 1, typeOf(5));
    packer.prepareNextPacket();
    ClientLcdBitmap bitmap(8, 1, 1);
    bitmap.buffer = {0x55};
    EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 11u);
    EXPECT_EQ(packetOf(packer), (Bytes{23, 0, 2, 0, 0, 0, 0, 0, 5, 1, 0, 0xAA, 38, 8, 0, 0, 0, 0, 0, 8, 1, 1, 0x55}));
    EXPECT_EQ(packer.getPacketCount(), 2u);
}

TEST(PriorityPackerSlice, rawTenBytesFree_areTooFew)
{
    const ClientLcdBitmap bitmap(8, 4, 1);
    PackerWith ten(10);
    EXPECT_EQ(ten.addBitmapDataToPacket(bitmap), 0u);
    EXPECT_EQ(ten.getPacketCount(), 0u);
    expectCursor(bitmap, 0, 0, 0);
    ClientLcdBitmap atItsEnd(8, 4, 1);
    atItsEnd.byteOffset = 4;
    EXPECT_EQ(ten.addBitmapDataToPacket(atItsEnd), 0u);
    expectCursor(atItsEnd, 4, 0, 0); // not even looked at
    PackerWith eleven(11);
    EXPECT_EQ(eleven.addBitmapDataToPacket(bitmap), 11u);
    expectCursor(bitmap, 1, 1, 0);
}

TEST(PriorityPackerSlice, rawRowLongerThanTheSpace_isNotSent)
{
    PackerWith packer(10 + 15);
    const ClientLcdBitmap bitmap(128, 64, 1);
    EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 0u);
    EXPECT_EQ(packetOf(packer), (Bytes{8, 0, 0, 0, 0, 0, 0, 0}));
    expectCursor(bitmap, 0, 0, 0);
}

TEST(PriorityPackerSlice, rawRowsWithoutBytes_areNotSent)
{
    PackerWith packer(100);
    EXPECT_EQ(packer.addBitmapDataToPacket(ClientLcdBitmap(0, 4, 1)), 0u);
    EXPECT_EQ(packer.addBitmapDataToPacket(ClientLcdBitmap(4, 4, 0)), 0u);
    EXPECT_EQ(packer.getPacketCount(), 0u);
}

TEST(PriorityPackerSlice, rawNoRows_isCompleteAndNotSent)
{
    PackerWith packer(100);
    const ClientLcdBitmap bitmap(8, 0, 1);
    EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 0u);
    expectCursor(bitmap, 0, 0, 1); // byteOffset is at the end of an empty buffer
}

// 12 pixels a row: counted as two bytes each when they are fitted in, sent as one
// run of bits.
TEST(PriorityPackerSlice, rawRowsOfBrokenBytes_areSentAsOneRunOfBits)
{
    PackerWith packer(16);
    ClientLcdBitmap bitmap(12, 4, 1);
    ASSERT_EQ(bitmap.size(), 6u);
    count(bitmap);
    EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 14u); // 3 rows, 36 bits, 4 bytes
    EXPECT_EQ(packetOf(packer), (Bytes{22, 0, 1, 0, 0, 0, 0, 0, 38, 11, 0, 0, 0, 0, 0, 12, 3, 1, 0, 1, 2, 3}));
    expectCursor(bitmap, 4, 3, 0);
    packer.clearData();
    EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 11u); // 1 row, 12 bits, 1 byte
    EXPECT_EQ(packetOf(packer), (Bytes{19, 0, 1, 0, 0, 0, 0, 0, 38, 8, 0, 0, 0, 0, 3, 12, 1, 1, 4}));
    expectCursor(bitmap, 0, 3, 1);
}

TEST(PriorityPackerSlice, rawRowsOfLessThanAByteTogether_areASliceWithoutData)
{
    PackerWith packer(11);
    const ClientLcdBitmap bitmap(4, 4, 1);
    EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 10u); // 1 row, 4 bits, 0 bytes
    expectCursor(bitmap, 0, 1, 0);
}

TEST(PriorityPackerSlice, rawDeepPixels_countTheirDepth)
{
    PackerWith packer(10 + 50);
    ClientLcdBitmap bitmap(8, 10, 24);
    count(bitmap);
    EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 58u); // 2 rows of 24 bytes
    EXPECT_EQ(packetOf(packer),
              joined({{66, 0, 1, 0, 0, 0, 0, 0, 38, 55, 0, 0, 0, 0, 0, 8, 2, 24}, countedFrom(0, 48)}));
}

TEST(PriorityPackerSlice, rawRowOnTheLcd_wrapsAt256)
{
    PackerWith packer(100);
    ClientLcdBitmap bitmap(8, 20, 1);
    bitmap.y = 250;
    bitmap.rowOffset = 10;
    bitmap.byteOffset = 10;
    packer.addBitmapDataToPacket(bitmap);
    EXPECT_EQ(packetOf(packer).at(14), 4);
}

TEST(PriorityPackerSlice, rawBufferShorterThanTheRows_isNotSent)
{
    PackerWith packer(100);
    ClientLcdBitmap bitmap(8, 4, 1);
    bitmap.buffer.resize(3);
    EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 0u);
    EXPECT_EQ(packer.getPacketCount(), 0u);
    expectCursor(bitmap, 0, 0, 0);
}

TEST(PriorityPackerSlice, rawCursorAtTheEndOfTheBuffer_startsAgainAndCompletes)
{
    PackerWith packer(100);
    ClientLcdBitmap bitmap(8, 4, 1);
    count(bitmap);
    bitmap.byteOffset = 4;
    bitmap.rowOffset = 2;
    EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 12u);
    EXPECT_EQ(packetOf(packer), (Bytes{20, 0, 1, 0, 0, 0, 0, 0, 38, 9, 0, 0, 0, 0, 2, 8, 2, 1, 0, 1}));
    expectCursor(bitmap, 0, 2, 1);
}

TEST(PriorityPackerSlice, rawRestartWithoutRoomForARow_completesAllTheSame)
{
    PackerWith packer(11);
    ClientLcdBitmap bitmap(16, 4, 1);
    bitmap.byteOffset = 8;
    EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 0u);
    expectCursor(bitmap, 0, 0, 1);
}

TEST(PriorityPackerSliceDeathTest, rawRowOffsetAboveTheHeight_aborts)
{
    PackerWith packer(100);
    ClientLcdBitmap bitmap(8, 4, 1);
    bitmap.rowOffset = 5;
    EXPECT_DEATH(packer.addBitmapDataToPacket(bitmap), "bitmap.rowOffset <= bitmap.height");
}

TEST(PriorityPackerSlice, encodedLayerThatFits_isOneSlice)
{
    PackerWith packer(10 + 24);
    ClientLcdBitmap bitmap = layerOfWords(2, joined({row(1), row(3)}));
    bitmap.x = 5;
    bitmap.y = 6;
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 34u);
    EXPECT_EQ(packetOf(packer), (Bytes{42,   0,    1,    0,    0, 0, 0, 0, 46, 31, 0, 3, 0, 5, 6, 8, 2, 24, //
                                       0xFF, 0xFF, 0xFF, 0xFF, 4, 0, 0, 1, 4,  0,  0, 2,                    //
                                       0xFF, 0xFF, 0xFF, 0xFF, 4, 0, 0, 3, 4,  0,  0, 4}));
    expectCursor(bitmap, 0, 0, 1);
}

TEST(PriorityPackerSlice, encodedSizeBelowTheBuffers_isWhatCounts)
{
    PackerWith packer(1000);
    ClientLcdBitmap bitmap = layerOfWords(1, row(1));
    bitmap.buffer.resize(200, 0xEE);
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 22u);
    EXPECT_EQ(packer.getPacketSize(), 30u);
}

TEST(PriorityPackerSlice, encodedPacketWithARecord_takesNone)
{
    PackerWith packer(1000);
    packer.addStructData(nullptr, 0, typeOf(5));
    packer.prepareNextPacket();
    const ClientLcdBitmap bitmap = layerOfWords(1, row(1));
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 0u);
    EXPECT_EQ(packer.getPacketCount(), 1u);
    expectCursor(bitmap, 0, 0, 0);
}

TEST(PriorityPackerSlice, encodedTenBytesFree_areTooFew)
{
    PackerWith packer(10);
    const ClientLcdBitmap bitmap = layerOfWords(1, row(1));
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 0u);
}

// Three rows of 12 bytes, 40 bytes free: markers at 0, 12 and 24 are within reach.
TEST(PriorityPackerSlice, encodedLayerThatDoesNotFit_isCutBeforeTheLastMarkerWithinReach)
{
    PackerWith packer(40);
    const ClientLcdBitmap bitmap = layerOfWords(3, joined({row(1), row(3), row(5)}));
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 34u);
    EXPECT_EQ(packetOf(packer), joined({{42, 0, 1, 0, 0, 0, 0, 0, 46, 31, 0, 3, 0, 0, 0, 8, 2, 24}, row(1), row(3)}));
    expectCursor(bitmap, 24, 2, 0);

    packer.clearData();
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 22u);
    EXPECT_EQ(packetOf(packer), joined({{30, 0, 1, 0, 0, 0, 0, 0, 46, 19, 0, 3, 0, 0, 2, 8, 1, 24}, row(5)}));
    expectCursor(bitmap, 0, 0, 1);
}

// The scan ends at offset (remaining - 11) rounded down to a word: two rows of 12
// bytes would fill 34 bytes to the last, but the marker behind them is out of reach.
TEST(PriorityPackerSlice, encodedMarkerBehindRowsThatFillThePacket_isOutOfReach)
{
    PackerWith packer(34);
    const ClientLcdBitmap bitmap = layerOfWords(3, joined({row(1), row(3), row(5)}));
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 22u);
    expectCursor(bitmap, 12, 1, 0);
}

TEST(PriorityPackerSlice, encodedOneByteMore_bringsTheMarkerWithinReach)
{
    PackerWith packer(35);
    const ClientLcdBitmap bitmap = layerOfWords(3, joined({row(1), row(3), row(5)}));
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 34u);
    expectCursor(bitmap, 24, 2, 0);
}

TEST(PriorityPackerSlice, encodedRowLongerThanTheSpace_isNotSent)
{
    PackerWith packer(21);
    const ClientLcdBitmap bitmap = layerOfWords(3, joined({row(1), row(3), row(5)}));
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 0u);
    EXPECT_EQ(packetOf(packer), (Bytes{8, 0, 0, 0, 0, 0, 0, 0}));
    expectCursor(bitmap, 0, 0, 0);
}

TEST(PriorityPackerSlice, encodedMoreMarkersThanRowsLeft_endsTheLayer)
{
    PackerWith packer(40);
    const ClientLcdBitmap bitmap = layerOfWords(2, joined({row(1), row(3), row(5)}));
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 34u);
    EXPECT_EQ(packetOf(packer).at(16), 2);
    expectCursor(bitmap, 0, 0, 1);
}

// Markers are counted in eight bits: 256 of them are none, and the rows before one that
// is the first again are 255.
TEST(PriorityPackerSlice, encoded256MarkersWithinReach_areASliceOf255Rows)
{
    PackerWith packer(11 + 4 * 255); // reaches offset 1020, the 256th marker
    const ClientLcdBitmap bitmap = layerOfWords(10, Bytes(4 * 300, 0xFF));
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 10u + 1020u);
    EXPECT_EQ(packetOf(packer).at(16), 255);
    expectCursor(bitmap, 0, 0, 1);
}

TEST(PriorityPackerSlice, encoded257MarkersWithinReach_areNotSent)
{
    PackerWith packer(11 + 4 * 256);
    const ClientLcdBitmap bitmap = layerOfWords(10, Bytes(4 * 300, 0xFF));
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 0u);
    EXPECT_EQ(packer.getPacketCount(), 0u);
    expectCursor(bitmap, 0, 0, 0);
}

// A run of 255 white pixels encodes like a marker; nothing tells them apart.
TEST(PriorityPackerSlice, encodedRunThatLooksLikeAMarker_countsAsOne)
{
    PackerWith packer(33); // reaches offset 20
    const Bytes whiteRow = joined({marker, marker, {1, 0xFF, 0xFF, 0xFF}});
    const ClientLcdBitmap bitmap = layerOfWords(10, joined({whiteRow, whiteRow}));
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 26u); // 4 markers, the last at 16
    EXPECT_EQ(packetOf(packer).at(16), 3);
    expectCursor(bitmap, 16, 3, 0);
}

TEST(PriorityPackerSlice, encodedNoRowsLeft_isNotSent)
{
    const ClientLcdBitmap fits = layerOfWords(0, row(1));
    PackerWith packer(100);
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(fits), 0u);
    const ClientLcdBitmap cut = layerOfWords(0, joined({row(1), row(3), row(5)}));
    PackerWith small(40);
    EXPECT_EQ(small.addBitmapDataToPacketEncoded(cut), 0u);
    expectCursor(cut, 0, 0, 0);
}

TEST(PriorityPackerSlice, encodedNoBytes_areNotSent)
{
    PackerWith packer(100);
    const ClientLcdBitmap bitmap = layerOfWords(1, {});
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 0u);
    expectCursor(bitmap, 0, 0, 0);
}

// Fewer than four bytes that do not fit: nothing to scan, so they go out as 255
// rows and one byte beyond the limit.
TEST(PriorityPackerSlice, encodedLessThanAWordThatDoesNotFit_goesOutAs255Rows)
{
    PackerWith packer(11);
    const ClientLcdBitmap bitmap = layerOfWords(4, {0xA1, 0xA2});
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 12u);
    EXPECT_EQ(packetOf(packer), (Bytes{20, 0, 1, 0, 0, 0, 0, 0, 46, 9, 0, 3, 0, 0, 0, 8, 255, 24, 0xA1, 0xA2}));
    EXPECT_EQ(packer.getPacketSizeRemaining(), 0u);
    expectCursor(bitmap, 0, 0, 1);
}

// Not an image of the encoder's: sending it whole would overrun the packet.
TEST(PriorityPackerSlice, encodedLongDataWithoutAMarker_isNotSent)
{
    PackerWith packer(40);
    const ClientLcdBitmap bitmap = layerOfWords(3, Bytes(100, 0x11));
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 0u);
    EXPECT_EQ(packetOf(packer), (Bytes{8, 0, 0, 0, 0, 0, 0, 0}));
    expectCursor(bitmap, 0, 0, 0);
}

TEST(PriorityPackerSlice, encodedSizeAboveTheBuffers_isNotSent)
{
    PackerWith packer(100);
    ClientLcdBitmap bitmap = layerOfWords(1, row(1));
    bitmap.encodedSize = 13;
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 0u);
}

// Geometry that no buffer fits. The buffers are exactly as large as they say, so that the
// address sanitizer sees one byte too many.

TEST(PriorityPackerSlice, rawEmptyBuffer_givesASliceWithoutDataWhereNoneIsDue)
{
    PackerWith packer(11);
    ClientLcdBitmap bitmap(4, 4, 1);
    bitmap.buffer = Bytes();                              // without an address
    EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 10u); // 1 row, 4 bits, 0 bytes
    EXPECT_EQ(packetOf(packer), (Bytes{18, 0, 1, 0, 0, 0, 0, 0, 38, 7, 0, 0, 0, 0, 0, 4, 1, 1}));
    expectCursor(bitmap, 0, 1, 1); // the cursor is at the end of the buffer
}

TEST(PriorityPackerSlice, rawLargestGeometryOnASmallBuffer_isNotSent)
{
    PackerWith packer(65535 - 8);
    ClientLcdBitmap bitmap(255, 255, 255);
    for (const std::size_t size : {0u, 1u, 40u, 8128u, 65024u}) { // 8 rows fit, 65,025 bytes
        bitmap.buffer = Bytes(size);
        EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 0u);
    }
    EXPECT_EQ(packer.getPacketCount(), 0u);
}

TEST(PriorityPackerSlice, rawCursorFarBeyondTheBuffer_startsAgain)
{
    PackerWith packer(100);
    ClientLcdBitmap bitmap(8, 4, 1);
    count(bitmap);
    bitmap.byteOffset = 0xFFFFFFFF;
    EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 14u);
    EXPECT_EQ(packetOf(packer), (Bytes{22, 0, 1, 0, 0, 0, 0, 0, 38, 11, 0, 0, 0, 0, 0, 8, 4, 1, 0, 1, 2, 3}));
    expectCursor(bitmap, 0, 0, 1);
}

TEST(PriorityPackerSlice, rawRowOffsetAtTheHeight_leavesNothingToSend)
{
    PackerWith packer(100);
    ClientLcdBitmap bitmap(8, 4, 1);
    bitmap.rowOffset = 4;
    EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 0u);
    expectCursor(bitmap, 0, 4, 0);
}

TEST(PriorityPackerSlice, layerPastTheLcd_isSentAsGiven)
{
    PackerWith packer(100);
    ClientLcdBitmap bitmap(16, 1, 1);
    bitmap.x = 255;
    bitmap.y = 255;
    EXPECT_EQ(packer.addBitmapDataToPacket(bitmap), 12u);
    EXPECT_EQ(packetOf(packer), (Bytes{20, 0, 1, 0, 0, 0, 0, 0, 38, 9, 0, 0, 0, 255, 255, 16, 1, 1, 0, 0}));
}

TEST(PriorityPackerSlice, encodedSizeFarAboveTheBuffers_isNotSent)
{
    for (const unsigned int remaining : {11u, 40u, 60000u}) {
        PackerWith packer(remaining);
        ClientLcdBitmap bitmap = layerOfWords(3, joined({row(1), row(3), row(5)}));
        for (const std::uint32_t size : {37u, 0x80000000u, 0xFFFFFFFFu}) {
            bitmap.encodedSize = size;
            EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 0u);
        }
        expectCursor(bitmap, 0, 0, 0);
    }
}

TEST(PriorityPackerSlice, encodedCursorBeyondTheSize_isNotSent)
{
    for (const unsigned int remaining : {11u, 40u, 60000u}) {
        PackerWith packer(remaining);
        ClientLcdBitmap bitmap = layerOfWords(3, joined({row(1), row(3), row(5)}));
        for (const std::uint32_t offset : {36u, 37u, 0x80000000u, 0xFFFFFFFFu}) {
            bitmap.byteOffset = offset;
            EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 0u);
            expectCursor(bitmap, offset, 0, 0);
        }
    }
}

// Words are looked at from offset 0 on, and bytes sent from offset 3 on.
TEST(PriorityPackerSlice, encodedCursorInsideAWord_scansFromTheWordsBeginning)
{
    PackerWith packer(34);
    ClientLcdBitmap bitmap = layerOfWords(3, joined({row(1), row(3), row(5)}));
    bitmap.byteOffset = 3;
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 22u);
    EXPECT_EQ(packetOf(packer), (Bytes{30,   0, 1, 0, 0, 0, 0, 0, 46, 19,   0,    3,   0, 0, 0, 8, 1, 24, //
                                       0xFF, 4, 0, 0, 1, 4, 0, 0, 2,  0xFF, 0xFF, 0xFF}));
    expectCursor(bitmap, 15, 1, 0);
}

TEST(PriorityPackerSlice, encodedRowOffsetAboveTheHeight_countsModulo256)
{
    PackerWith packer(100);
    ClientLcdBitmap bitmap = layerOfWords(3, row(1));
    bitmap.rowOffset = 5;
    EXPECT_EQ(packer.addBitmapDataToPacketEncoded(bitmap), 22u);
    EXPECT_EQ(packetOf(packer).at(16), 254);
    expectCursor(bitmap, 0, 0, 1);
}

// Every size of the buffer, packet and run-length data up to three rows and a bit.
TEST(PriorityPackerSlice, encodedCutOfEverySize_staysInsideTheBuffer)
{
    const Bytes words = joined({row(1), row(3), row(5), {0xFF, 0xFF, 0xFF}});
    for (std::size_t size = 0; size <= words.size(); ++size) {
        const auto end = words.begin() + static_cast<std::ptrdiff_t>(size);
        for (unsigned int remaining = 11; remaining <= 60; ++remaining) {
            for (std::uint32_t offset = 0; offset <= size; ++offset) {
                PackerWith packer(remaining);
                ClientLcdBitmap bitmap = layerOfWords(3, Bytes(words.begin(), end));
                bitmap.byteOffset = offset;
                const std::size_t written = packer.addBitmapDataToPacketEncoded(bitmap);
                // Less than a word may pass the limit, see above.
                EXPECT_LE(written, size - offset < 4 ? 13u : remaining);
                EXPECT_EQ(packer.getPacketSize(), 8 + written);
            }
        }
    }
}

} // namespace Vantor
