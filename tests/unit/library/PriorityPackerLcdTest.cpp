#include "libMorvaneHostUsb/PriorityPacker.h"

#include "tests/support/CountingObserver.h"
#include "tests/support/PackedBytes.h"
#include "tests/support/PrivateMember.h"

#include <utility>

#include <gtest/gtest.h>

namespace Vantor {

struct LcdData {
    friend auto& reach(LcdData, PriorityPacker& packer);
};
template struct PrivateMember<LcdData, PriorityPacker, &PriorityPacker::m_lcdData>;

struct NextLcd {
    friend auto& reach(NextLcd, PriorityPacker& packer);
};
template struct PrivateMember<NextLcd, PriorityPacker, &PriorityPacker::m_nextLcd>;

struct ChangedLcds {
    friend auto& reach(ChangedLcds, PriorityPacker& packer);
};
template struct PrivateMember<ChangedLcds, PriorityPacker, &PriorityPacker::m_changedLcds>;

namespace {

// One pixel column of the LCD: a byte of a slice holds eight rows.
ClientLcdBitmap column(unsigned short lcd, unsigned char rows)
{
    ClientLcdBitmap bitmap(1, rows, 1);
    bitmap.lcd = lcd;
    return bitmap;
}

// Rows of one byte each.
ClientLcdBitmap bytesPerRow(unsigned short lcd, unsigned char rows)
{
    ClientLcdBitmap bitmap(8, rows, 1);
    bitmap.lcd = lcd;
    return bitmap;
}

ClientLcdBitmap rectangle(unsigned char x, unsigned char y, unsigned char width, unsigned char height)
{
    ClientLcdBitmap bitmap(width, height, 8);
    bitmap.lcd = 1;
    bitmap.x = x;
    bitmap.y = y;
    return bitmap;
}

void queueFiller(PriorityPacker& packer, int type, std::size_t size)
{
    const Bytes payload(size, 0x5A);
    packer.addStructData(payload.data(), static_cast<unsigned int>(size), typeOf(type));
}

// A record of the next packet; lcd and row stay -1 unless it is a slice.
struct Packed {
    int type;
    int lcd;
    int row;
    int rows;

    bool operator==(const Packed& other) const
    {
        return type == other.type && lcd == other.lcd && row == other.row && rows == other.rows;
    }
};

std::ostream& operator<<(std::ostream& out, const Packed& packed)
{
    return out << "type " << packed.type << " lcd " << packed.lcd << " row " << packed.row << " rows " << packed.rows;
}

Packed record(int type)
{
    return {type, -1, -1, -1};
}

Packed slice(int lcd, int row, int rows)
{
    return {38, lcd, row, rows};
}

using Packet = std::vector<Packed>;

Packet nextPacket(PriorityPacker& packer)
{
    packer.clearData();
    const unsigned int count = packer.prepareNextPacket();
    EXPECT_EQ(count, packer.getPacketCount());
    Packet packet;
    for (const PackedRecord& packed : recordsOf(packer)) {
        if (packed.type == 38 || packed.type == 46)
            packet.push_back({packed.type, packed.payload.at(0) + 256 * packed.payload.at(1), packed.payload.at(3),
                              packed.payload.at(5)});
        else
            packet.push_back(record(packed.type));
    }
    return packet;
}

// The left columns and top rows of the slices that leave LCD 1.
std::vector<std::pair<int, int>> drawnOn1(PriorityPacker& packer)
{
    std::vector<std::pair<int, int>> corners;
    while (packer.hasMoreData()) {
        packer.clearData();
        if (packer.prepareNextPacket() == 0)
            break;
        for (const PackedRecord& packed : recordsOf(packer))
            corners.emplace_back(packed.payload.at(2), packed.payload.at(3));
    }
    return corners;
}

} // namespace

TEST(PriorityPackerLcd, emptyPacker_leavesTheCursorAtTheEnd)
{
    PriorityPacker packer(100);
    EXPECT_EQ(packer.prepareNextPacket(), 0u);
    EXPECT_TRUE(reach(NextLcd{}, packer) == reach(LcdData{}, packer).end());
}

TEST(PriorityPackerLcd, layer_goesOutAsASliceAndIsGone)
{
    PriorityPacker packer(100);
    ClientLcdBitmap bitmap = bytesPerRow(0x0102, 2);
    bitmap.x = 3;
    bitmap.y = 4;
    bitmap.buffer = {0xA1, 0xA2};
    packer.drawBitmapData(bitmap);
    EXPECT_TRUE(packer.hasMoreData());
    EXPECT_EQ(packer.getPacketCount(), 0u);
    EXPECT_EQ(packer.prepareNextPacket(), 1u);
    EXPECT_EQ(packetOf(packer), (Bytes{20, 0, 1, 0, 0, 0, 0, 0, 38, 9, 0, 0x02, 0x01, 3, 4, 8, 2, 1, 0xA1, 0xA2}));
    EXPECT_FALSE(packer.hasMoreData());
    EXPECT_EQ(nextPacket(packer), Packet{});
}

TEST(PriorityPackerLcd, halfSentOriginal_isDrawnFromItsFirstRow)
{
    PriorityPacker packer(100);
    ClientLcdBitmap bitmap = bytesPerRow(1, 4);
    bitmap.byteOffset = 2;
    bitmap.rowOffset = 2;
    packer.drawBitmapData(bitmap);
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 0, 4)}));
    EXPECT_EQ(bitmap.rowOffset, 2);
}

TEST(PriorityPackerLcd, rvalueDraw_copiesToo)
{
    PriorityPacker packer(100);
    ClientLcdBitmap bitmap = bytesPerRow(1, 2);
    bitmap.buffer = {0xA1, 0xA2};
    packer.drawBitmapData(std::move(bitmap));
    EXPECT_EQ(bitmap.buffer, (Bytes{0xA1, 0xA2})); // NOLINT(bugprone-use-after-move): that is the point
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 0, 2)}));
}

TEST(PriorityPackerLcd, slices_goBehindEveryStructRecord)
{
    PriorityPacker packer(100);
    packer.drawBitmapData(bytesPerRow(1, 2));
    queueFiller(packer, 46, 1);
    queueFiller(packer, 6, 1);
    packer.clearData();
    EXPECT_EQ(packer.prepareNextPacket(), 3u);
    const std::vector<PackedRecord> records = recordsOf(packer);
    EXPECT_EQ(records.at(0).type, 6);
    EXPECT_EQ(records.at(1).type, 46);
    EXPECT_EQ(records.at(2).type, 38);
}

TEST(PriorityPackerLcd, structRecordThatDoesNotFit_endsThePacketBeforeAnySlice)
{
    for (const int type : {5, 6}) {
        PriorityPacker packer(8 + 40);
        packer.drawBitmapData(bytesPerRow(1, 2)); // 12 bytes
        queueFiller(packer, type, 20);
        queueFiller(packer, type, 20);
        EXPECT_EQ(nextPacket(packer), (Packet{record(type)}));
        EXPECT_EQ(nextPacket(packer), (Packet{record(type), slice(1, 0, 2)}));
    }
}

// One slice of each fills a packet of 8 + 10 + 20 bytes; LCD 2 has what is left of it
// or the next packet.
TEST(PriorityPackerLcd, twoLcdsWithLayersLargerThanAPacket_alternateFromPacketToPacket)
{
    PriorityPacker packer(8 + 30);
    packer.drawBitmapData(bytesPerRow(1, 50));
    packer.drawBitmapData(bytesPerRow(2, 50));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 0, 20)}));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(2, 0, 20)}));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 20, 20)}));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(2, 20, 20)}));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 40, 10)}));
    EXPECT_TRUE(packer.hasMoreData());
    EXPECT_EQ(nextPacket(packer), (Packet{slice(2, 40, 10)}));
    EXPECT_FALSE(packer.hasMoreData());
}

// A column's rows count one byte each when fitted in and an eighth when sent, so
// space remains: 60 free, 50 rows in 6 bytes; 44 free, 34 rows in 4; 30 free, 20 rows
// in 2; 18 free, 8 rows in 1; 7 free, nothing.
TEST(PriorityPackerLcd, twoLcds_alternateWithinAPacketWhileSpaceRemains)
{
    PriorityPacker packer(8 + 60);
    packer.drawBitmapData(column(1, 200));
    packer.drawBitmapData(column(2, 200));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 0, 50), slice(2, 0, 34), slice(1, 50, 20), slice(2, 34, 8)}));
    EXPECT_EQ(packer.getPacketSizeRemaining(), 7u);
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 70, 50), slice(2, 42, 34), slice(1, 120, 20), slice(2, 76, 8)}));
}

TEST(PriorityPackerLcd, lcdThatDidNotFit_isFirstInTheNextPacket)
{
    PriorityPacker packer(8 + 30);
    packer.drawBitmapData(bytesPerRow(1, 12)); // leaves 8 bytes
    packer.drawBitmapData(bytesPerRow(2, 12));
    packer.drawBitmapData(bytesPerRow(3, 12));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 0, 12)}));
    packer.drawBitmapData(bytesPerRow(1, 12));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(2, 0, 12)}));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(3, 0, 12)}));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 0, 12)}));
}

TEST(PriorityPackerLcd, lessThanSevenBytesFree_leavesTheCursorOnTheLcd)
{
    for (const unsigned int free : {6u, 7u}) {
        PriorityPacker packer(8 + 20 + free);
        packer.drawBitmapData(bytesPerRow(1, 10));
        packer.drawBitmapData(bytesPerRow(2, 10));
        EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 0, 10)}));
        EXPECT_EQ(packer.getPacketSizeRemaining(), free);
        ASSERT_TRUE(reach(NextLcd{}, packer) != reach(LcdData{}, packer).end());
        EXPECT_EQ(reach(NextLcd{}, packer)->first, 2);
    }
}

// With less than seven bytes free the LCD is not visited at all: an entry without
// layers keeps its place in the set, and hasMoreData stays true for one more packet.
TEST(PriorityPackerLcd, lessThanSevenBytesFree_visitsNoLcd)
{
    for (const unsigned int free : {6u, 7u}) {
        PriorityPacker packer(8 + free);
        packer.lockLcd(1);
        reach(ChangedLcds{}, packer).insert(1);
        EXPECT_EQ(packer.prepareNextPacket(), 0u);
        EXPECT_EQ(packer.hasMoreData(), free == 6);
    }
}

TEST(PriorityPackerLcd, lockedLcd_isSkipped)
{
    PriorityPacker packer(100);
    packer.lockLcd(1);
    packer.drawBitmapData(bytesPerRow(1, 2));
    packer.drawBitmapData(bytesPerRow(2, 2));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(2, 0, 2)}));
    EXPECT_TRUE(packer.hasMoreData());
    EXPECT_EQ(nextPacket(packer), Packet{});
    EXPECT_TRUE(packer.hasMoreData());
    packer.unlockLcd(1);
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 0, 2)}));
    EXPECT_FALSE(packer.hasMoreData());
}

TEST(PriorityPackerLcd, lockedLcdWithoutLayers_leavesTheChangedOnes)
{
    PriorityPacker packer(100);
    packer.lockLcd(1);
    reach(ChangedLcds{}, packer).insert(1);
    EXPECT_TRUE(packer.hasMoreData());
    EXPECT_EQ(packer.prepareNextPacket(), 0u);
    EXPECT_FALSE(packer.hasMoreData());
}

TEST(PriorityPackerLcd, lockInTheMiddleOfALayer_holdsTheRestBack)
{
    PriorityPacker packer(8 + 20);
    packer.drawBitmapData(bytesPerRow(1, 15));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 0, 10)}));
    packer.lockLcd(1);
    EXPECT_EQ(nextPacket(packer), Packet{});
    packer.unlockLcd(1);
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 10, 5)}));
}

TEST(PriorityPackerLcd, lock_isAFlagNotACount)
{
    PriorityPacker packer(100);
    packer.lockLcd(1);
    packer.lockLcd(1);
    packer.drawBitmapData(bytesPerRow(1, 2));
    packer.unlockLcd(1);
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 0, 2)}));
}

TEST(PriorityPackerLcd, unlock_notifiesAndLockDoesNot)
{
    PriorityPacker packer(100);
    CountingObserver observer;
    packer.setObserver(&observer);
    packer.lockLcd(1);
    EXPECT_EQ(observer.m_calls, 0);
    packer.unlockLcd(1);
    EXPECT_EQ(observer.m_calls, 1);
    packer.drawBitmapData(bytesPerRow(1, 2));
    EXPECT_EQ(observer.m_calls, 2);
}

TEST(PriorityPackerLcd, unlockOfAnUnseenLcd_makesAnEmptyEntryAndNotifies)
{
    PriorityPacker packer(100);
    CountingObserver observer;
    packer.setObserver(&observer);
    packer.unlockLcd(9);
    EXPECT_EQ(observer.m_calls, 1);
    ASSERT_EQ(reach(LcdData{}, packer).count(9), 1u);
    EXPECT_FALSE(reach(LcdData{}, packer)[9].locked);
    EXPECT_FALSE(packer.hasMoreData());
    EXPECT_EQ(packer.prepareNextPacket(), 0u);
}

TEST(PriorityPackerLcd, lcdEntries_stayOnceMade)
{
    PriorityPacker packer(100);
    packer.drawBitmapData(bytesPerRow(4, 2));
    nextPacket(packer);
    EXPECT_EQ(reach(LcdData{}, packer).count(4), 1u);
}

// The sweep starts at the cursor; when it packs nothing up to the end, what lies
// before the cursor waits for the next call.
TEST(PriorityPackerLcd, cursorOnLcd3WithOnlyLcd1Unlocked_packsNoSliceUntilTheNextCall)
{
    PriorityPacker packer(8 + 30);
    packer.drawBitmapData(bytesPerRow(1, 20)); // fills the packet
    packer.drawBitmapData(bytesPerRow(3, 5));
    packer.drawBitmapData(bytesPerRow(5, 5));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 0, 20)}));
    ASSERT_EQ(reach(NextLcd{}, packer)->first, 3);

    packer.drawBitmapData(bytesPerRow(1, 5));
    packer.lockLcd(3);
    packer.lockLcd(5);
    queueFiller(packer, 7, 1);
    EXPECT_EQ(nextPacket(packer), (Packet{record(7)}));
    EXPECT_TRUE(reach(NextLcd{}, packer) == reach(LcdData{}, packer).end());
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 0, 5)}));
}

TEST(PriorityPackerLcd, sweepThatPackedBehindTheCursor_goesOnFromTheBeginning)
{
    PriorityPacker packer(8 + 37);
    packer.drawBitmapData(bytesPerRow(1, 20));
    packer.drawBitmapData(bytesPerRow(3, 5));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 0, 20)}));
    packer.drawBitmapData(bytesPerRow(1, 5));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(3, 0, 5), slice(1, 0, 5)}));
    EXPECT_TRUE(reach(NextLcd{}, packer) == reach(LcdData{}, packer).end());
}

TEST(PriorityPackerLcd, severalLayersOfOneLcd_goOutOneAVisit)
{
    PriorityPacker packer(1000);
    ClientLcdBitmap second = bytesPerRow(1, 2);
    second.x = 100;
    packer.drawBitmapData(bytesPerRow(1, 3));
    packer.drawBitmapData(second);
    packer.drawBitmapData(bytesPerRow(2, 4));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 0, 3), slice(2, 0, 4), slice(1, 0, 2)}));
    EXPECT_FALSE(packer.hasMoreData());
}

TEST(PriorityPackerLcd, encodedLayer_isTheFirstRecordOfItsPacket)
{
    PriorityPacker packer(1000);
    ClientLcdBitmap encoded(8, 1, 24);
    encoded.lcd = 1;
    encoded.encoded = 1;
    encoded.encodedSize = 8;
    packer.drawBitmapData(encoded);
    packer.drawBitmapData(bytesPerRow(2, 4));
    queueFiller(packer, 5, 1);
    // It ends a packet that holds something, for the LCDs behind it too.
    EXPECT_EQ(nextPacket(packer), (Packet{record(5)}));
    EXPECT_EQ(nextPacket(packer), (Packet{{46, 1, 0, 1}, slice(2, 0, 4)}));
    EXPECT_FALSE(packer.hasMoreData());
}

TEST(PriorityPackerLcd, layerThatNeverFits_holdsBackTheLcdsBehindIt)
{
    PriorityPacker packer(8 + 30);
    ClientLcdBitmap wide(240, 1, 1); // 30 bytes a row
    wide.lcd = 1;
    packer.drawBitmapData(wide);
    packer.drawBitmapData(bytesPerRow(2, 1));
    for (int packets = 0; packets < 3; ++packets)
        EXPECT_EQ(nextPacket(packer), Packet{});
    EXPECT_TRUE(packer.hasMoreData());
}

TEST(PriorityPackerLcd, clearData_keepsLayersAndTheirCursors)
{
    PriorityPacker packer(8 + 20);
    packer.drawBitmapData(bytesPerRow(1, 15));
    nextPacket(packer);
    packer.clearData();
    packer.clearData();
    EXPECT_TRUE(packer.hasMoreData());
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 10, 5)}));
}

TEST(PriorityPackerLcd, fullScreenOverThreeSmallerLayers_leavesOnlyItself)
{
    PriorityPacker packer(8192);
    packer.drawBitmapData(rectangle(0, 0, 10, 10));
    packer.drawBitmapData(rectangle(20, 5, 10, 10));
    packer.drawBitmapData(rectangle(5, 40, 10, 10));
    packer.drawBitmapData(rectangle(0, 0, 64, 64));
    EXPECT_EQ(drawnOn1(packer), (std::vector<std::pair<int, int>>{{0, 0}}));
}

TEST(PriorityPackerLcd, layerCoveredButForOneColumnOrRow_isKeptAndSentFirst)
{
    const ClientLcdBitmap old = rectangle(10, 20, 8, 6);
    const std::pair<ClientLcdBitmap, bool> cases[] = {
        {rectangle(10, 20, 8, 6), true},  {rectangle(11, 20, 7, 6), false}, {rectangle(10, 20, 7, 6), false},
        {rectangle(10, 21, 8, 5), false}, {rectangle(10, 20, 8, 5), false}, {rectangle(9, 19, 10, 8), true},
        {rectangle(9, 19, 8, 8), false},  {rectangle(9, 19, 10, 6), false}, {rectangle(9, 19, 9, 7), true},
    };
    for (const auto& [bitmap, isCovering] : cases) {
        SCOPED_TRACE(testing::Message() << int{bitmap.x} << ' ' << int{bitmap.y} << ' ' << int{bitmap.width} << ' '
                                        << int{bitmap.height});
        PriorityPacker packer(8192);
        packer.drawBitmapData(old);
        packer.drawBitmapData(bitmap);
        std::vector<std::pair<int, int>> expected;
        if (!isCovering)
            expected.emplace_back(10, 20);
        expected.emplace_back(bitmap.x, bitmap.y);
        EXPECT_EQ(drawnOn1(packer), expected);
    }
}

TEST(PriorityPackerLcd, layerOfAnotherLcd_isNotCovered)
{
    PriorityPacker packer(8192);
    packer.drawBitmapData(bytesPerRow(1, 4));
    packer.drawBitmapData(bytesPerRow(2, 4));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 0, 4), slice(2, 0, 4)}));
}

TEST(PriorityPackerLcd, halfSentLayer_isRemovedWhenCovered)
{
    PriorityPacker packer(8 + 20);
    packer.drawBitmapData(bytesPerRow(1, 15));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 0, 10)}));
    packer.drawBitmapData(bytesPerRow(1, 15));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 0, 10)}));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 10, 5)}));
    EXPECT_FALSE(packer.hasMoreData());
}

// The top edges are compared with the rows already sent, the bottom edges are not.
TEST(PriorityPackerLcd, rowsAlreadySent_countForTheTopEdgeOnly)
{
    PriorityPacker packer(8 + 20);
    packer.drawBitmapData(bytesPerRow(1, 15));
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 0, 10)}));
    ClientLcdBitmap lower = bytesPerRow(1, 5);
    lower.y = 10; // covers the rows not yet sent
    packer.drawBitmapData(lower);
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 10, 5)}));
    EXPECT_FALSE(packer.hasMoreData());
}

TEST(PriorityPackerLcd, rowOffsetOfTheNewBitmap_lowersItsTopEdge)
{
    PriorityPacker packer(8192);
    packer.drawBitmapData(bytesPerRow(1, 4));
    ClientLcdBitmap bitmap = bytesPerRow(1, 4);
    bitmap.rowOffset = 1;
    packer.drawBitmapData(bitmap);
    EXPECT_EQ(nextPacket(packer), (Packet{slice(1, 0, 4), slice(1, 0, 4)}));
}

TEST(PriorityPackerLcd, drawOnALockedLcd_isStored)
{
    PriorityPacker packer(100);
    packer.lockLcd(1);
    packer.drawBitmapData(bytesPerRow(1, 2));
    EXPECT_EQ(reach(LcdData{}, packer)[1].bitmaps.size(), 1u);
    EXPECT_EQ(nextPacket(packer), Packet{});
    EXPECT_TRUE(packer.hasMoreData());
}

} // namespace Vantor
