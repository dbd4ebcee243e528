#include "simulator/replay/RecordComparison.h"
#include "simulator/replay/SessionReader.h"
#include "tests/support/CaptureScript.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

struct Sending {
    int type;
    Bytes payload;
    unsigned int panel = 0;
};

RecordedSession sessionOf(const CaptureScript& script)
{
    SessionReader reader;
    for (const CapturedUrb& urb : script.urbs)
        reader.add(urb);
    return reader.finish();
}

// What differs when these are sent, one after the other from 1.5 s on.
std::vector<std::string> differences(const CaptureScript& expected, const std::vector<Sending>& sent,
                                     RecordComparison::Options options = {})
{
    const RecordedSession session = sessionOf(expected);
    RecordComparison comparison(session, std::move(options));
    std::chrono::nanoseconds time = 1500ms;
    for (const Sending& each : sent) {
        comparison.add(each.panel, static_cast<PacketType>(each.type), each.payload, time);
        time += 1ms;
    }
    return comparison.describeDifferences();
}

// Frames 1 to 6, at 0, 250 and 500 ms.
const CaptureScript three = CaptureScript().send(5, {1, 2}).at(250ms).send(5, {3, 4}).at(500ms).send(5, {5, 6});

TEST(RecordComparison, sameRecords_areNoDifference)
{
    EXPECT_THAT(differences(three, {{5, {1, 2}}, {5, {3, 4}}, {5, {5, 6}}}), IsEmpty());
}

TEST(RecordComparison, packing_makesNoDifference)
{
    const Bytes both{16, 0, 2, 0, 0, 0, 0, 0, 5, 1, 0, 0xA1, 7, 1, 0, 0xB2};
    EXPECT_THAT(differences(CaptureScript().write(both).done(), {{5, {0xA1}}, {7, {0xB2}}}), IsEmpty());
}

TEST(RecordComparison, wrongByte_isShownWithItsOffset)
{
    EXPECT_THAT(differences(three, {{5, {1, 2}}, {5, {3, 0xFF}}, {5, {5, 6}}}),
                ElementsAre("panel 0: record 2 (type 5, 2 bytes, at 0.250 s, frame 3) is another\n"
                            "  expected 03 04\n"
                            "  got      03 ff\n"
                            "  they differ from byte 1 on\n"
                            "  it came at 1.501 s"));
}

// As Wireshark has it: the frame in which the record is, and the time since the first one,
// whatever that is of.
TEST(RecordComparison, recordOfTheCapture_isWhereWiresharkShowsIt)
{
    const Bytes packet = CaptureScript::packet(5, Bytes(20000, 0x77));
    const auto first = packet.begin() + 16384;
    const CaptureScript late = CaptureScript()
                                   .device(9)
                                   .descriptor(1, 0, {1})
                                   .device(5)
                                   .at(250ms)
                                   .read()
                                   .at(300ms)
                                   .write(packet)
                                   .at(325ms)
                                   .done();
    EXPECT_THAT(differences(late, {{5, {1}}}), ElementsAre(testing::HasSubstr(", at 0.300 s, frame 4) is another")));
    const CaptureScript parts = CaptureScript()
                                    .at(500ms)
                                    .send(6, {})
                                    .at(2s)
                                    .write(Bytes(packet.begin(), first))
                                    .at(2100ms)
                                    .done()
                                    .at(2200ms)
                                    .write(Bytes(first, packet.end()))
                                    .at(2300ms)
                                    .done();
    EXPECT_THAT(differences(parts, {{6, {}}, {5, {1}}}),
                ElementsAre(testing::HasSubstr(", at 1.700 s, frame 5) is another")));
}

TEST(RecordComparison, longRecord_isCutToWhereItDiffers)
{
    Bytes sent(100, 0);
    const CaptureScript expected = CaptureScript().send(5, sent);
    sent[50] = 0xEE;
    EXPECT_THAT(differences(expected, {{5, sent}}),
                ElementsAre("panel 0: record 1 (type 5, 100 bytes, at 0.000 s, frame 1) is another\n"
                            "  expected... 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ...\n"
                            "  got     ... 00 00 00 00 ee 00 00 00 00 00 00 00 00 00 00 00 ...\n"
                            "  they differ from byte 50 on\n"
                            "  it came at 1.500 s"));
}

TEST(RecordComparison, shorterRecord_differsWhereItEnds)
{
    EXPECT_THAT(differences(CaptureScript().send(5, {1, 2}), {{5, {1}}}),
                ElementsAre("panel 0: record 1 (type 5, 2 bytes, at 0.000 s, frame 1) is another\n"
                            "  expected 01 02\n"
                            "  got      01\n"
                            "  they differ from byte 1 on\n"
                            "  it came at 1.500 s"));
}

TEST(RecordComparison, swappedRecords_areToldAsSuch)
{
    EXPECT_THAT(differences(three, {{5, {3, 4}}, {5, {1, 2}}, {5, {5, 6}}}),
                ElementsAre("panel 0: record 1 (type 5, 2 bytes, at 0.000 s, frame 1) comes behind record 2"));
}

TEST(RecordComparison, missingRecord_isToldAsSuch)
{
    EXPECT_THAT(differences(three, {{5, {1, 2}}, {5, {5, 6}}}),
                ElementsAre("panel 0: record 2 (type 5, 2 bytes, at 0.250 s, frame 3) is missing: the one behind it "
                            "comes, at 1.501 s"));
}

TEST(RecordComparison, missingEnd_isCounted)
{
    EXPECT_THAT(differences(three, {{5, {1, 2}}}),
                ElementsAre("panel 0: record 2 (type 5, 2 bytes, at 0.250 s, frame 3) does not come, nor 1 behind it"));
    EXPECT_THAT(differences(three, {}),
                ElementsAre("panel 0: record 1 (type 5, 2 bytes, at 0.000 s, frame 1) does not come, nor 2 behind it"));
}

TEST(RecordComparison, additionalRecord_isShown)
{
    EXPECT_THAT(differences(three, {{5, {1, 2}}, {5, {9}}, {5, {3, 4}}, {5, {5, 6}}}),
                ElementsAre("panel 0: record 2 (type 5, 2 bytes, at 0.250 s, frame 3) comes behind one that the "
                            "capture does not have: type 5, 1 byte, at 1.501 s\n"
                            "  got      09"));
    EXPECT_THAT(differences(three, {{5, {1, 2}}, {5, {3, 4}}, {5, {5, 6}}, {5, {}}}),
                ElementsAre("panel 0: 1 more than the capture has: type 5, 0 bytes, at 1.503 s\n"
                            "  got      nothing"));
    EXPECT_THAT(differences(three, {{6, {9}}, {5, {1, 2}}, {5, {3, 4}}, {5, {5, 6}}}),
                ElementsAre("panel 0: 1 more than the capture has: type 6, 1 byte, at 1.500 s\n"
                            "  got      09"));
}

TEST(RecordComparison, recordsBehindAnOpenEnd_areNoDifference)
{
    const CaptureScript open = CaptureScript().send(5, {1}).read();
    EXPECT_THAT(differences(open, {{5, {1}}, {5, {2}}, {6, {2}}}), IsEmpty());
    EXPECT_THAT(differences(open, {{5, {2}}, {5, {1}}}), testing::SizeIs(1));
}

TEST(RecordComparison, orderOfTypes_isCheckedOnRequest)
{
    const CaptureScript expected = CaptureScript().send(5, {1}).send(41, {2});
    const std::vector<Sending> sent{{41, {2}}, {5, {1}}};
    EXPECT_THAT(differences(expected, sent), IsEmpty());
    EXPECT_THAT(differences(expected, sent, {true, {}}),
                ElementsAre("panel 0: record 1 (type 5, 1 byte, at 0.000 s, frame 1) comes behind record 2"));
    EXPECT_THAT(differences(expected, {{41, {2}}}, {true, {}}),
                ElementsAre("panel 0: record 1 (type 5, 1 byte, at 0.000 s, frame 1) is missing: the one behind it "
                            "comes, at 1.500 s"));
    EXPECT_THAT(differences(expected, {{7, {2}}, {8, {1}}}, {true, {}}),
                ElementsAre("panel 0: record 1 (type 5, 1 byte, at 0.000 s, frame 1) is another\n"
                            "  expected type 5, 1 byte, at 0.000 s, frame 1\n"
                            "  got      type 7, 1 byte, at 1.500 s"));
}

TEST(RecordComparison, ignoredTypes_areNotCompared)
{
    EXPECT_THAT(differences(three, {{6, {1}}}, {false, {static_cast<PacketType>(5), static_cast<PacketType>(6)}}),
                IsEmpty());
}

TEST(RecordComparison, repeatedRequests_countOnce)
{
    const CaptureScript twice = CaptureScript().send(1, {1, 0, 0, 0}).send(5, {1}).send(1, {1, 0, 0, 0});
    EXPECT_THAT(differences(twice, {{1, {1, 0, 0, 0}}, {5, {1}}}), IsEmpty());
    EXPECT_THAT(differences(CaptureScript().send(1, {1, 0, 0, 0}), {{1, {1, 0, 0, 0}}, {1, {1, 0, 0, 0}}}), IsEmpty());
    EXPECT_THAT(differences(twice, {{5, {1}}}),
                ElementsAre("panel 0: record 1 (type 1 (ReqDeviceInfo), 4 bytes, at 0.000 s, frame 1) does not come"));
    EXPECT_THAT(differences(twice, {{1, {2, 0, 0, 0}}, {5, {1}}}), testing::SizeIs(1));
}

// LCD 3, column 0, row 10, 8 pixels wide, 1 bit each: rows F0 and 0F.
const Bytes twoRows{3, 0, 0, 10, 8, 2, 1, 0xF0, 0x0F};

TEST(RecordComparison, slices_areComparedRowByRow)
{
    const CaptureScript whole = CaptureScript().send(38, twoRows);
    const Bytes first{3, 0, 0, 10, 8, 1, 1, 0xF0};
    const Bytes second{3, 0, 0, 11, 8, 1, 1, 0x0F};
    EXPECT_THAT(differences(whole, {{38, first}, {38, second}}), IsEmpty());
    EXPECT_THAT(differences(CaptureScript().send(38, first).send(38, second), {{38, twoRows}}), IsEmpty());
    EXPECT_THAT(differences(whole, {{38, first}}),
                ElementsAre("panel 0: record 1 (type 38 (LcdSlice), LCD 3, row 11 from column 0, 8 pixels of 1 bit, at "
                            "0.000 s, frame 1) does not come"));
    const Bytes wrong{3, 0, 0, 11, 8, 1, 1, 0x07};
    EXPECT_THAT(differences(whole, {{38, first}, {38, wrong}}),
                ElementsAre("panel 0: record 1 (type 38 (LcdSlice), LCD 3, row 11 from column 0, 8 pixels of 1 bit, at "
                            "0.000 s, frame 1) is another\n"
                            "  pixel 4 of the row: expected ., got #\n"
                            "  it came at 1.501 s"));
    EXPECT_THAT(differences(whole, {{38, first}, {38, second}}, {true, {}}), testing::SizeIs(1));
}

// The order of LCDs among themselves is a matter of what waits for which.
TEST(RecordComparison, slicesOfSeveralLcds_areComparedEachByItself)
{
    Bytes other = twoRows;
    other[0] = 4;
    EXPECT_THAT(differences(CaptureScript().send(38, twoRows).send(38, other), {{38, other}, {38, twoRows}}),
                IsEmpty());
}

// 3 rows of 3 pixels: 9 bits in one slice, of which the last is missing; in three, each has none.
TEST(RecordComparison, pixelsThatASliceLacks_areNoDifference)
{
    const Bytes whole{3, 0, 0, 10, 3, 3, 1, 0xFF};
    const Bytes parts[] = {{3, 0, 0, 10, 3, 2, 1}, {3, 0, 0, 12, 3, 1, 1}};
    EXPECT_THAT(differences(CaptureScript().send(38, whole), {{38, parts[0]}, {38, parts[1]}}), IsEmpty());
}

TEST(RecordComparison, encodedAndPackedSlices_areNotTheSame)
{
    const Bytes words{3, 0, 0, 10, 8, 1, 1, 0xFF, 0xFF, 0xFF, 0xFF, 8, 0, 0, 1};
    const Bytes packed{3, 0, 0, 10, 8, 1, 1, 0xFF};
    EXPECT_THAT(differences(CaptureScript().send(46, words), {{38, packed}}),
                ElementsAre("panel 0: record 1 (type 46 (EncodedLcdSlice), LCD 3, row 10 from column 0, 8 pixels of 1 "
                            "bit, at 0.000 s, frame 1) is another\n"
                            "  expected type 46 (EncodedLcdSlice), LCD 3, row 10 from column 0, 8 pixels of 1 bit, at "
                            "0.000 s, frame 1\n"
                            "  got      type 38 (LcdSlice), LCD 3, row 10 from column 0, 8 pixels of 1 bit, at 1.500 "
                            "s"));
}

TEST(RecordComparison, sliceThatIsNone_isComparedAsARecord)
{
    EXPECT_THAT(differences(CaptureScript().send(38, {1, 2}), {{38, {1, 2}}}), IsEmpty());
    EXPECT_THAT(differences(CaptureScript().send(38, {1, 2}), {{38, {1, 3}}}), testing::SizeIs(1));
}

TEST(RecordComparison, severalPanels_areComparedEachByItself)
{
    const CaptureScript two = CaptureScript().send(5, {1}).device(6).send(5, {2});
    EXPECT_THAT(differences(two, {{5, {2}, 1}, {5, {1}, 0}}), IsEmpty());
    EXPECT_THAT(differences(two, {{5, {1}, 1}, {5, {1}, 0}}),
                ElementsAre("panel 1: record 1 (type 5, 1 byte, at 0.000 s, frame 3) is another\n"
                            "  expected 02\n"
                            "  got      01\n"
                            "  they differ from byte 0 on\n"
                            "  it came at 1.500 s"));
    EXPECT_THAT(differences(CaptureScript().send(5, {1}), {{5, {1}, 0}, {5, {1}, 2}}), testing::SizeIs(1));
}

TEST(RecordComparison, firstDifferenceOfEachType_isToldInOrder)
{
    const CaptureScript expected = CaptureScript().send(9, {1}).send(5, {1}).send(5, {2}).send(9, {2});
    EXPECT_THAT(differences(expected, {}),
                ElementsAre("panel 0: record 1 (type 9, 1 byte, at 0.000 s, frame 1) does not come, nor 1 behind it",
                            "panel 0: record 2 (type 5, 1 byte, at 0.000 s, frame 3) does not come, nor 1 behind it"));
}

} // namespace Vantor
