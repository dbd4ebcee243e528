#include "tests/dissector/Dissection.h"
#include "tests/dissector/HandmadeCapture.h"
#include "tests/dissector/SamplePackets.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAreArray;

TEST(Dissector, packets_headerRecordsAndInfoByHand)
{
    HandmadeCapture capture;
    capture.enumerate(panel);
    const auto one = capture.out(panel, {0x0D, 0, 1, 0, 0, 0, 0, 0, 5, 2, 0, 0xAA, 0xBB});
    const auto three = capture.out(panel, {0x13, 0, 3, 0, 0, 0, 0, 0, 6, 1, 0, 1, 45, 0, 0, 200, 1, 0, 2});
    const auto two = capture.in(panel, {0x0C, 0, 1, 0, 0x78, 0x56, 0x34, 0x12, 9,  1, 0, 0xCC, //
                                        0x0B, 0, 1, 0, 1,    0,    0,    0,    10, 0, 0});
    const auto five = capture.out(panel, {23, 0, 5, 0, 0, 0, 0, 0, 2, 0, 0, 3, 0, 0, 4, 0, 0, 5, 0, 0, 6, 0, 0});
    const Dissection seen(capture);

    EXPECT_EQ(seen.of(one, "length"), "13");
    EXPECT_EQ(seen.of(one, "count"), "1");
    EXPECT_EQ(seen.of(one, "device"), "0x00000000");
    EXPECT_EQ(seen.of(one, "type"), "5");
    EXPECT_EQ(seen.of(one, "size"), "2");
    EXPECT_EQ(seen.of(one, "payload"), "aabb");
    EXPECT_EQ(seen.of(one, "_ws.col.Info"), "Record 5, 2 bytes");

    EXPECT_EQ(seen.of(three, "type"), "6|45|200");
    EXPECT_EQ(seen.of(three, "size"), "1|0|1");
    EXPECT_EQ(seen.of(three, "payload"), "01|02");
    EXPECT_EQ(seen.of(three, "_ws.col.Info"), "Record 6, 1 byte; Record 45, 0 bytes; Record 200, 1 byte");

    EXPECT_EQ(seen.of(two, "length"), "12|11");
    EXPECT_EQ(seen.of(two, "count"), "1|1");
    EXPECT_EQ(seen.of(two, "device"), "0x12345678|0x00000001");
    EXPECT_EQ(seen.of(two, "type"), "9|10");

    EXPECT_EQ(seen.of(five, "_ws.col.Info"),
              "Record 2, 0 bytes; Record 3, 0 bytes; Record 4, 0 bytes; Record 5, 0 bytes; and 1 more");
    for (const auto frame : {one, three, two, five})
        EXPECT_THAT(seen.faultsOf(frame), IsEmpty());
    EXPECT_EQ(seen.size(), 4u);
}

TEST(Dissector, slices_geometryRowsAndRunsByHand)
{
    HandmadeCapture capture;
    capture.enumerate(panel);
    const auto packed = capture.out(panel, oneRecord(38, {0x34, 0x12, 4, 2, 12, 2, 1, 0xFF, 0xF0, 0x01}));
    const auto runs = capture.out(panel, oneRecord(46, {3,    0,    1,    255,  5, 2,    24,    //
                                                        0xFF, 0xFF, 0xFF, 0xFF, 5, 0xFF, 0,  0, //
                                                        0xFF, 0xFF, 0xFF, 0xFF, 2, 0xFF, 0,  0, 3, 0, 0, 0xFF}));
    // 3 pixels of 3 bits too few: 15 bits are cut to 1 byte.
    const auto cut = capture.out(panel, oneRecord(38, {0, 0, 0, 0, 5, 3, 1, 0b10101'110}));
    const auto bits8 = capture.out(panel, oneRecord(38, {0, 0, 0, 0, 2, 1, 8, 0b111'000'01, 0b001'100'11}));
    const auto bits12 = capture.out(panel, oneRecord(38, {0, 0, 0, 0, 2, 1, 12, 0x12, 0x3A, 0xBC}));
    // Red 31, green 1, blue 16: F830 is 11111 000001 10000.
    const auto bits16 = capture.out(panel, oneRecord(38, {0, 0, 0, 0, 1, 1, 16, 0x30, 0xF8}));
    const auto bits24 = capture.out(panel, oneRecord(38, {0, 0, 0, 0, 1, 1, 24, 0x12, 0x34, 0x56}));
    // Of one bit any value but 0 is on; of 12 bits those above the code do not count.
    const auto values =
        capture.out(panel, oneRecord(46, {0, 0, 0, 0, 2, 1, 1, 0xFF, 0xFF, 0xFF, 0xFF, 1, 1, 0, 0, 1, 0, 0, 0}));
    const auto above =
        capture.out(panel, oneRecord(46, {0, 0, 0, 0, 1, 1, 12, 0xFF, 0xFF, 0xFF, 0xFF, 1, 0xEE, 0xF1, 0x23}));
    const Dissection seen(capture);

    EXPECT_EQ(seen.of(packed, "slice.lcd"), "4660");
    EXPECT_EQ(seen.of(packed, "slice.x"), "4");
    EXPECT_EQ(seen.of(packed, "slice.y"), "2");
    EXPECT_EQ(seen.of(packed, "slice.width"), "12");
    EXPECT_EQ(seen.of(packed, "slice.rows"), "2");
    EXPECT_EQ(seen.of(packed, "slice.bits"), "1");
    EXPECT_EQ(seen.of(packed, "slice.data"), "fff001");
    EXPECT_EQ(seen.of(packed, "slice.row"), "2|3");
    EXPECT_EQ(seen.of(packed, "slice.pixels"), "############|...........#");
    EXPECT_EQ(seen.of(packed, "_ws.col.Info"), "Slice LCD 4660, 12x2 at 4,2, packed");

    EXPECT_EQ(seen.of(runs, "slice.row"), "255|0");
    EXPECT_EQ(seen.of(runs, "slice.pixels"), "FF0000 FF0000 FF0000 FF0000 FF0000|FF0000 FF0000 0000FF 0000FF 0000FF");
    EXPECT_EQ(seen.of(runs, "slice.run.count"), "5|2|3");
    EXPECT_EQ(seen.of(runs, "slice.run.value"), "0xff0000|0xff0000|0x0000ff");
    EXPECT_EQ(seen.of(runs, "_ws.col.Info"), "Slice LCD 3, 5x2 at 1,255, 24 bits, run-length");

    EXPECT_EQ(seen.of(cut, "slice.row"), "0|1");
    EXPECT_EQ(seen.of(cut, "slice.pixels"), "#.#.#|##.");
    EXPECT_EQ(seen.of(bits8, "slice.pixels"), "FF0055 2491FF"); // 1/7 is 36, 4/7 is 145, 1/3 is 85
    EXPECT_EQ(seen.of(bits12, "slice.pixels"), "112233 AABBCC");
    EXPECT_EQ(seen.of(bits16, "slice.pixels"), "FF0483"); // 1/63 is 4, 16/31 is 131
    EXPECT_EQ(seen.of(bits24, "slice.pixels"), "123456");
    EXPECT_EQ(seen.of(values, "slice.pixels"), "#.");
    EXPECT_EQ(seen.of(above, "slice.pixels"), "112233");
    for (const auto frame : {packed, runs, cut, bits8, bits12, bits16, bits24, values, above})
        EXPECT_THAT(seen.faultsOf(frame), IsEmpty());
    EXPECT_EQ(seen.size(), 9u);
}

TEST(Dissector, deviceInformationAndFirmware_fieldsByHand)
{
    HandmadeCapture capture;
    capture.enumerate(panel);
    const auto ask = capture.out(panel, oneRecord(1, {1, 0, 0, 0}));
    Bytes information(83);
    std::copy_n("Bench 7", 7, information.begin());
    information[81] = 0x20;
    information[82] = 9;
    const auto answer = capture.in(panel, oneRecord(0, information));
    Bytes request{0,    0, 0,    0, 0, 0, 0, 0, 0, 0, 9, 0, 0, 0,    0x26, 0x39, 0xF4,
                  0xCB, 0, 0x30, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x57, 2,    0,    0};
    const auto begin = capture.out(panel, oneRecord(41, request));
    Bytes chunk(4109);
    std::copy_n("\x0F\x00\x10\x00\x00\x09\x00\x00\x00"
                "123456789",
                18, chunk.begin());
    chunk[4105] = 0x05; // 15 + 16 + 9 + the digits' 477 = 517
    chunk[4106] = 0x02;
    const auto data = capture.out(panel, oneRecord(44, chunk));
    const auto written = capture.in(panel, oneRecord(40, {1, 15, 0, 16, 0, 0, 9, 0, 0, 0, 5, 2, 0, 0}));
    const auto again = capture.in(panel, oneRecord(40, {2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    const auto odd = capture.in(panel, oneRecord(40, {0x77, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    const Dissection seen(capture);

    EXPECT_EQ(seen.of(ask, "info.request"), "1");
    EXPECT_EQ(seen.of(ask, "_ws.col.Info"), "Device information request");
    EXPECT_EQ(seen.of(answer, "info.description"), "Bench 7");
    EXPECT_EQ(seen.of(answer, "info.max_packet"), "8192");
    EXPECT_EQ(seen.of(answer, "info.reserved"), "0x09");
    EXPECT_EQ(seen.of(answer, "_ws.col.Info"), "Device information \"Bench 7\", packets up to 8192");

    EXPECT_EQ(seen.of(begin, "firmware.main.size"), "9");
    EXPECT_EQ(seen.of(begin, "firmware.main.crc"), "0xcbf43926");
    EXPECT_EQ(seen.of(begin, "firmware.word"), "0x3000");
    EXPECT_EQ(seen.of(begin, "firmware.servo.size"), "0");
    EXPECT_EQ(seen.of(begin, "firmware.servo.crc"), "0x00000000");
    EXPECT_EQ(seen.of(begin, "firmware.checksum"), "0x00000257");
    EXPECT_EQ(seen.of(begin, "firmware.reserved"), "00000000000000000000|0000");
    EXPECT_EQ(seen.of(begin, "_ws.col.Info"), "Firmware request, main image of 9 bytes, no servo image");

    EXPECT_EQ(seen.of(data, "firmware.board"), "15");
    EXPECT_EQ(seen.of(data, "firmware.address"), "4096");
    EXPECT_EQ(seen.of(data, "firmware.length"), "9");
    EXPECT_EQ(seen.of(data, "firmware.data"), "313233343536373839");
    EXPECT_EQ(seen.of(data, "firmware.unused").size(), 2u * 4087);
    EXPECT_EQ(seen.of(data, "firmware.checksum"), "0x00000205");
    EXPECT_EQ(seen.of(data, "_ws.col.Info"), "Firmware chunk, servo MCU at 4096, 9 bytes");

    EXPECT_EQ(seen.of(written, "firmware.reply"), "0x01");
    EXPECT_EQ(seen.of(written, "firmware.board"), "15");
    EXPECT_EQ(seen.of(written, "firmware.address"), "4096");
    EXPECT_EQ(seen.of(written, "firmware.length"), "9");
    EXPECT_EQ(seen.of(written, "firmware.checksum"), "0x00000205");
    EXPECT_EQ(seen.of(written, "_ws.col.Info"), "Firmware reply: chunk written, servo MCU at 4096");
    EXPECT_EQ(seen.of(again, "_ws.col.Info"), "Firmware reply: send again");
    EXPECT_EQ(seen.of(odd, "_ws.col.Info"), "Firmware reply: unknown code 0x77, board 3 at 0");
    for (const auto frame : {ask, answer, begin, data, written, again, odd})
        EXPECT_THAT(seen.faultsOf(frame), IsEmpty());
}

TEST(Dissector, wideRow_isWholeAsAField)
{
    HandmadeCapture capture;
    capture.enumerate(panel);
    const auto frame = capture.out(panel, oneRecord(38, joined({{0, 0, 0, 0, 255, 1, 24}, Bytes(3 * 255, 0xAB)})));
    std::string row = "ABABAB";
    for (int pixel = 1; pixel < 255; ++pixel)
        row += " ABABAB";
    EXPECT_EQ(Dissection(capture).of(frame, "slice.pixels"), row);
}

// What people read: names of values, and no field of which nobody would know what it is.
TEST(Dissector, tree_saysEverythingByName)
{
    HandmadeCapture capture;
    capture.enumerate(panel);
    capture.in(panel, oneRecord(40, {0xF1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    capture.out(panel, oneRecord(46, {0, 0, 0, 0, 2, 1, 1, 0xFF, 0xFF, 0xFF, 0xFF, 2, 0, 0, 1}));
    capture.out(panel, oneRecord(7, {1}));
    const TemporaryFile file(capture.getFile());
    const std::string tree = runTshark({"-r", file.getPath(), "-O", "morvane", "-Y", "morvane"});
    for (const char* line : {
             "Morvane Panel, from the panel\n",
             "    Packet: 25 bytes, 1 record\n",
             "            Type: Firmware reply (40)\n",
             "            Reply: erase failed (0xf1)\n",
             "            Board: main MCU (1)\n",
             "Morvane Panel, to the panel\n",
             "        Slice LCD 0, 2x1 at 0,0, run-length\n",
             "            Type: LCD slice, run-length (46)\n",
             "                Row 0: ##\n",
             "                    Run: 2 of 0x000001\n",
             "            Type: Application record (7)\n",
         })
        EXPECT_THAT(tree, testing::HasSubstr(line));
}

TEST(Dissector, fields_areThoseOfTheDocument)
{
    // F, what people call it, its name, and more, with tabs between them.
    std::vector<std::string> names;
    for (const std::string& line : splitAt(runTshark({"-G", "fields"}), '\n'))
        if (line.rfind("F\t", 0) == 0 && line.find("\tmorvane.") != std::string::npos)
            names.push_back(splitAt(line, '\t').at(2));
    EXPECT_THAT(documentedFields(), UnorderedElementsAreArray(names));
    EXPECT_GT(names.size(), 40u);
}

} // namespace
} // namespace Vantor
