#include "tests/dissector/Dissection.h"
#include "tests/dissector/HandmadeCapture.h"
#include "tests/dissector/SamplePackets.h"
#include "tests/support/BootRecords.h"
#include "tests/support/Random.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST(DissectorDamage, framing_isToldByteByByte)
{
    HandmadeCapture capture;
    capture.enumerate(panel);
    capture.out(panel, good); // the capture does not begin in the middle
    const auto shortLength = capture.out(panel, {7, 0, 1, 0, 0, 0, 0, 0, 5, 0, 0});
    const auto longLength = capture.out(panel, {30, 0, 1, 0, 0, 0, 0, 0, 5, 1, 0, 9});
    const auto noHeader = capture.out(panel, {1, 2, 3});
    const auto headerAlone = capture.out(panel, {8, 0, 0, 0, 0, 0, 0, 0});
    const auto behind = capture.out(panel, joined({good, {1, 2}}));
    const auto restOfRecord = capture.out(panel, {13, 0, 1, 0, 0, 0, 0, 0, 5, 0, 0, 1, 2});
    const auto tooLarge = capture.out(panel, {14, 0, 2, 0, 0, 0, 0, 0, 5, 0, 0, 6, 1, 0});
    const auto count = capture.out(panel, {14, 0, 1, 0, 0, 0, 0, 0, 5, 0, 0, 6, 0, 0});
    const auto device = capture.out(panel, {11, 0, 1, 0, 0, 0, 0, 0x80, 5, 0, 0});
    const auto further = capture.out(panel, joined({good, good}));
    const auto encoded = capture.out(panel, joined({{29, 0, 2, 0, 0, 0, 0, 0, 5, 0, 0, 46, 15, 0}, //
                                                    {0, 0, 0, 0, 1, 1, 1, 255, 255, 255, 255, 1, 0, 0, 1}}));
    const auto severalIn = capture.in(panel, joined({good, good}));
    const auto countIn = capture.in(panel, {11, 0, 7, 0, 9, 0, 0, 0, 5, 0, 0});
    const auto emptyIn = capture.in(panel, {8, 0, 0, 0, 9, 0, 0, 0});
    const Bytes wrong{12, 0, 1, 0, 0, 0, 0, 0, 5, 9, 0, 1};
    const auto wrongIn = capture.in(panel, joined({wrong, good}));
    const auto wrongOut = capture.out(panel, joined({wrong, good}));
    const auto last = capture.out(panel, good);
    const Dissection seen(capture);

    EXPECT_THAT(seen.faultsOf(shortLength), ElementsAre("byte 0: packet length 7 is less than its header of 8 bytes"));
    EXPECT_EQ(seen.of(shortLength, "type"), "");
    EXPECT_THAT(seen.faultsOf(longLength), ElementsAre("byte 0: packet of 30 bytes, the transfer ends after 12"));
    EXPECT_EQ(seen.of(longLength, "length"), "30");
    EXPECT_EQ(seen.of(longLength, "fragment"), "05010009");
    EXPECT_THAT(seen.faultsOf(noHeader), ElementsAre("byte 0: 3 bytes, a packet header has 8"));
    EXPECT_THAT(seen.faultsOf(headerAlone), ElementsAre("byte 0: packet without records"));
    EXPECT_THAT(seen.faultsOf(behind), ElementsAre("byte 13: 2 bytes behind the last packet, a packet header has 8"));
    EXPECT_EQ(seen.of(behind, "payload"), "aabb");
    EXPECT_THAT(seen.faultsOf(restOfRecord),
                ElementsAre("byte 11: 2 bytes left in the packet of 13 bytes, a record header has 3"));
    EXPECT_EQ(seen.of(restOfRecord, "type"), "5");
    EXPECT_THAT(seen.faultsOf(tooLarge),
                ElementsAre("byte 11: record of type 6 has 1 byte of payload, its packet of 14 bytes has 0 left"));
    EXPECT_EQ(seen.of(tooLarge, "type"), "5");
    EXPECT_THAT(seen.faultsOf(count), ElementsAre("byte 0: packet counts 1 record, it holds 2"));
    EXPECT_THAT(seen.faultsOf(device), ElementsAre("byte 4: device id 2147483648, a host sends 0"));
    EXPECT_THAT(seen.faultsOf(further), ElementsAre("byte 13: a further packet, a transfer carries one"));
    EXPECT_THAT(seen.faultsOf(encoded), ElementsAre("byte 11: encoded slice behind 1 record, it is a packet's first"));
    for (const auto frame : {severalIn, emptyIn, last})
        EXPECT_THAT(seen.faultsOf(frame), IsEmpty());
    EXPECT_THAT(seen.faultsOf(countIn), ElementsAre("byte 0: packet counts 7 records, it holds 1"));

    // The host's parser stops there, the panel's does not.
    EXPECT_EQ(seen.of(wrongIn, "type"), "");
    EXPECT_EQ(seen.of(wrongIn, "unread"), "0d0001000000000005"
                                          "0200aabb");
    EXPECT_EQ(seen.of(wrongOut, "type"), "5");
    EXPECT_EQ(seen.of(wrongOut, "unread"), "");

    // Each has its entry in the expert information; none is for the capture's sake.
    EXPECT_EQ(seen.of(longLength, "_ws.expert.message"), seen.of(longLength, "malformed"));
    EXPECT_EQ(seen.of(device, "_ws.expert.message"), seen.of(device, "violation"));
    EXPECT_EQ(seen.of(device, "_ws.col.Info"),
              "[Violation: byte 4: device id 2147483648, a host sends 0] Record 5, 0 bytes");
}

TEST(DissectorDamage, recordsThatBothKnow_areJudged)
{
    HandmadeCapture capture;
    capture.enumerate(panel);
    const auto sizes = std::vector<std::pair<unsigned int, std::string>>{
        {capture.out(panel, oneRecord(1, {1})), "device information request of 1 byte, it has 4"},
        {capture.in(panel, oneRecord(0, Bytes(10))), "device information of 10 bytes, it has 83"},
        {capture.in(panel, oneRecord(40, Bytes(15))), "firmware reply of 15 bytes, it has 14"},
        {capture.out(panel, oneRecord(41, {})), "firmware request of 0 bytes, it has 34"},
        {capture.out(panel, oneRecord(44, Bytes(5))), "firmware chunk of 5 bytes, it has 4109"},
        {capture.out(panel, oneRecord(38, Bytes(6))), "raw slice of 6 bytes, its header has 7"},
        {capture.out(panel, oneRecord(46, Bytes(1))), "encoded slice of 1 byte, its header has 7"},
    };
    Bytes request = BootRecords::request(9, 0xCBF43926);
    request[3] = 1;
    request[19] = 0x40;
    request[20] = 2;
    const auto wrongRequest = capture.out(panel, oneRecord(41, request));
    Bytes chunk = BootRecords::chunk(7, 0, Bytes(9));
    put(chunk, 5, 4097);
    const auto wrongChunk = capture.out(panel, oneRecord(44, chunk));
    const auto emptyChunk = capture.out(panel, oneRecord(44, BootRecords::chunk(1, 0, {})));
    // A panel sends no slices, a host no device information: payloads that nobody explains.
    const auto slice = capture.in(panel, oneRecord(38, {0, 0, 0, 0, 8, 1, 1, 0xFF}));
    const auto information = capture.out(panel, oneRecord(0, {1, 2}));
    const Dissection seen(capture);

    for (const auto& [frame, text] : sizes)
        EXPECT_THAT(seen.faultsOf(frame), ElementsAre(text));
    EXPECT_EQ(seen.of(sizes[0].first, "payload"), "01");
    // 0x257 and 1, 0x10 and 2 more.
    EXPECT_THAT(seen.faultsOf(wrongRequest),
                ElementsAre("checksum 0x00000257, the bytes before it sum to 0x0000026A", "reserved bytes are not 0",
                            "reserved bytes are not 0", "word 0x4000, a panel expects 0x3000"));
    // 4087 times 0xEE, 7 and 9 had been summed; now 1 and 16 are in the place of the 9.
    EXPECT_THAT(seen.faultsOf(wrongChunk),
                ElementsAre("board 7, there are 1 and 15", "checksum 0x000ED7B2, the bytes before it sum to 0x000ED7BA",
                            "chunk of 4097 bytes, it has 1 to 4096"));
    EXPECT_THAT(seen.faultsOf(emptyChunk), ElementsAre("chunk of 0 bytes, it has 1 to 4096"));
    EXPECT_EQ(seen.of(slice, "payload"), "00000000080101ff");
    EXPECT_EQ(seen.of(slice, "slice.lcd"), "");
    EXPECT_EQ(seen.of(information, "payload"), "0102");
}

TEST(DissectorDamage, slicesThatContradictThemselves_showWhatTheyCan)
{
    HandmadeCapture capture;
    capture.enumerate(panel);
    const auto bytes = capture.out(panel, oneRecord(38, {3, 0, 1, 2, 8, 2, 1, 0xFF}));
    const auto depth = capture.out(panel, oneRecord(38, {0, 0, 0, 0, 8, 1, 3, 0xFF}));
    const auto empty = capture.out(panel, oneRecord(46, {0, 0, 0, 0, 8, 0, 1}));
    // The second row has a run of 3 after 2 of 4 pixels.
    const auto run = capture.out(panel, oneRecord(46, {0,   0,   0,   0,   4, 2, 1, 255, 255, 255, 255, 4, 0, 0, 1, //
                                                       255, 255, 255, 255, 2, 0, 0, 0,   3,   0,   0,   1}));
    const auto marker = capture.out(panel, oneRecord(46, {0, 0, 0, 0, 4, 1, 1, 4, 0, 0, 1}));
    const auto end = capture.out(panel, oneRecord(46, {0, 0, 0, 0, 4, 2, 1, 255, 255, 255, 255, 4, 0, 0, 1}));
    const auto rest =
        capture.out(panel, oneRecord(46, {0, 0, 0, 0, 4, 1, 1, 255, 255, 255, 255, 4, 0, 0, 1, 1, 2, 3, 4}));
    const Dissection seen(capture);

    EXPECT_THAT(seen.faultsOf(bytes), ElementsAre("raw slice for LCD 3 at 1,2, 8x2, 1 bit per pixel: 1 byte of pixels, "
                                                  "its size makes 2"));
    EXPECT_EQ(seen.of(bytes, "slice.data"), "ff");
    EXPECT_THAT(seen.faultsOf(depth),
                ElementsAre("raw slice for LCD 0 at 0,0, 8x1, 3 bits per pixel: the depths are 1, "
                            "8, 12, 16 and 24"));
    EXPECT_THAT(seen.faultsOf(empty), ElementsAre("encoded slice for LCD 0 at 0,0, 8x0, 1 bit per pixel: it has no "
                                                  "pixels"));
    EXPECT_THAT(seen.faultsOf(run), ElementsAre("encoded slice for LCD 0 at 0,0, 4x2, 1 bit per pixel: row 1: a run of "
                                                "3 after 2 of 4 pixels"));
    EXPECT_EQ(seen.of(run, "slice.pixels"), "####|..");
    EXPECT_EQ(seen.of(run, "slice.run.count"), "4|2");
    EXPECT_THAT(seen.faultsOf(marker), ElementsAre("encoded slice for LCD 0 at 0,0, 4x1, 1 bit per pixel: row 0 does "
                                                   "not begin with a row marker"));
    EXPECT_THAT(seen.faultsOf(end), ElementsAre("encoded slice for LCD 0 at 0,0, 4x2, 1 bit per pixel: the data ends "
                                                "after 1 of 2 rows"));
    EXPECT_THAT(seen.faultsOf(rest), ElementsAre("encoded slice for LCD 0 at 0,0, 4x1, 1 bit per pixel: 4 bytes behind "
                                                 "the last of 1 row"));
    EXPECT_EQ(seen.of(rest, "slice.pixels"), "####");
}

// As with tcpdump -s: what was captured is shown, and what is missing is no fault.
TEST(DissectorDamage, framesThatTheCaptureCuts_areShownAsFarAsTheyGo)
{
    const Bytes rows{0, 0, 0, 0, 4, 2, 1, 255, 255, 255, 255, 4, 0, 0, 1, 255, 255, 255, 255, 2, 0, 0, 0, 2, 0, 0, 1};
    HandmadeCapture capture;
    capture.enumerate(panel);
    const auto packet = capture.out(panel, {17, 0, 2, 0, 0, 0, 0, 0, 5, 1, 0, 9, 6, 2, 0, 1, 2}, 16);
    const auto recordHeader = capture.out(panel, {17, 0, 2, 0, 0, 0, 0, 0, 5, 1, 0, 9, 6, 2, 0, 1, 2}, 13);
    const auto header = capture.out(panel, good, 7);
    const auto packed = capture.out(panel, oneRecord(38, {0, 0, 0, 0, 8, 3, 1, 0xAA, 0xBB, 0xCC}), 11 + 9);
    const auto encoded = capture.out(panel, oneRecord(46, rows), 11 + 24);
    const auto request = capture.out(panel, oneRecord(41, BootRecords::request(9, 1)), 11 + 20);
    const auto in = capture.in(panel, joined({good, good}), 20);
    Bytes big(40000, 5);
    put(big, 0, 0x10000 + 40000);
    put(big, 4, 0);
    put(big, 8, 5 + 256 * (40000 - 11));
    const auto first = capture.out(panel, {big.begin(), big.begin() + 16384}, 200);
    capture.out(panel, {big.begin() + 16384, big.begin() + 32768});
    const auto last = capture.out(panel, {big.begin() + 32768, big.end()});
    const auto next = capture.out(panel, good);
    const Dissection seen(capture);

    EXPECT_EQ(seen.of(packet, "type"), "5|6");
    EXPECT_EQ(seen.of(packet, "payload"), "09|01");
    EXPECT_EQ(seen.of(packet, "cut"), "1");
    EXPECT_EQ(seen.of(packet, "_ws.expert.message"), "The capture holds only 4 of 5 bytes");
    EXPECT_EQ(seen.of(recordHeader, "type"), "5");
    EXPECT_EQ(seen.of(recordHeader, "cut"), "4");
    EXPECT_EQ(seen.of(header, "cut"), "6");
    EXPECT_EQ(seen.of(header, "_ws.col.Info"), "[cut]");
    EXPECT_EQ(seen.of(packed, "slice.pixels"), "#.#.#.#.|#.###.##");
    EXPECT_EQ(seen.of(packed, "cut"), "1");
    EXPECT_EQ(seen.of(encoded, "slice.pixels"), "####|..");
    EXPECT_EQ(seen.of(request, "payload").size(), 2u * 20);
    EXPECT_EQ(seen.of(request, "firmware.word"), "");
    EXPECT_EQ(seen.of(in, "payload"), "aabb");
    EXPECT_EQ(seen.of(in, "cut"), "6");
    EXPECT_EQ(seen.of(first, "_ws.col.Info"), "Part of a packet of 40000 bytes: 200 bytes");
    EXPECT_EQ(seen.of(last, "length"), "40000");
    EXPECT_EQ(seen.of(last, "cut"), std::to_string(40000 - 200));
    for (const auto frame : {packet, recordHeader, header, packed, encoded, request, in, first, last, next})
        EXPECT_THAT(seen.faultsOf(frame), IsEmpty()) << frame;
}

TEST(DissectorDamage, captureThatBeginsInAPacket_isMalformedUntilATransferEnds)
{
    HandmadeCapture capture;
    capture.enumerate(panel);
    const auto middle = capture.out(panel, Bytes(16384, 0x77));
    const auto end = capture.out(panel, Bytes(7232, 0x77));
    const auto next = capture.out(panel, good);
    const auto wrong = capture.out(panel, {3, 0, 0, 0, 0, 0, 0, 0});
    const Dissection seen(capture);
    // 0x7777 is 30583.
    EXPECT_EQ(seen.of(middle, "_ws.col.Info"), "Part of a packet of 30583 bytes: 16384 bytes");
    EXPECT_THAT(seen.faultsOf(end), ElementsAre("byte 0: packet of 30583 bytes, the transfer ends after 23616"));
    EXPECT_THAT(seen.of(end, "_ws.expert.message"), HasSubstr("|The capture may begin in the middle of a packet"));
    EXPECT_THAT(seen.faultsOf(next), IsEmpty());
    EXPECT_THAT(seen.of(wrong, "_ws.expert.message"), Not(HasSubstr("middle")));
}

TEST(DissectorDamage, packetThatIsBrokenOff_isToldWhereTheNextOneBegins)
{
    Bytes big(40000);
    put(big, 0, 0x10000 + 40000);
    put(big, 8, 5 + 256 * (40000 - 11));
    HandmadeCapture capture;
    capture.enumerate(panel);
    const auto begun = capture.out(panel, {big.begin(), big.begin() + 16384});
    const auto next = capture.out(panel, good);
    const auto last = capture.out(panel, {big.begin(), big.begin() + 16384});
    const Dissection seen(capture, {"-2"});
    EXPECT_THAT(
        seen.faultsOf(next),
        ElementsAre("byte 0: packet of 40000 bytes, the transfer ends after 16384, in frame " + std::to_string(begun)));
    EXPECT_EQ(seen.of(next, "payload"), "aabb");
    EXPECT_EQ(seen.of(begun, "fragment.whole_in"), "");
    EXPECT_EQ(seen.of(last, "fragment.whole_in"), "");
}

// As PacketLimit has it: a second of grace, and 1024 or less is no announcement.
TEST(DissectorDamage, packetsAboveTheLimit_areAViolationFromASecondAfterItsAnnouncement)
{
    const auto information = [](std::uint16_t limit) {
        Bytes payload(83);
        payload[80] = static_cast<std::uint8_t>(limit);
        payload[81] = static_cast<std::uint8_t>(limit >> 8);
        return oneRecord(0, payload);
    };
    const auto sized = [](std::size_t size) { return oneRecord(5, Bytes(size - 11)); };
    HandmadeCapture capture;
    capture.enumerate(panel);
    const auto before = capture.out(panel, sized(9000));
    capture.in(panel, information(2000));
    const auto soon = capture.out(panel, sized(9000));
    capture.wait(1000);
    const auto above = capture.out(panel, sized(2001));
    const auto at = capture.out(panel, sized(2000));
    capture.in(panel, information(1500));
    const auto underWay = capture.out(panel, sized(2000));
    const auto never = capture.out(panel, sized(2001));
    capture.wait(1000);
    const auto lower = capture.out(panel, sized(1501));
    capture.in(panel, information(1024));
    capture.wait(1000);
    const auto same = capture.out(panel, sized(1500));
    const auto otherPanel = capture.out(3, sized(9000));
    const Dissection seen(capture);
    for (const auto frame : {before, soon, at, underWay, same, otherPanel})
        EXPECT_THAT(seen.faultsOf(frame), IsEmpty()) << frame;
    EXPECT_THAT(seen.faultsOf(above), ElementsAre("byte 0: packet of 2001 bytes, the limit is 2000"));
    EXPECT_THAT(seen.faultsOf(never), ElementsAre("byte 0: packet of 2001 bytes, the limit is 2000"));
    EXPECT_THAT(seen.faultsOf(lower), ElementsAre("byte 0: packet of 1501 bytes, the limit is 1500"));
}

// One capture, so that the packets of all kinds follow one another; -2 goes over each frame
// twice.
TEST(DissectorDamage, thousandsOfMutations_neverTripTheDissector)
{
    const std::vector<Bytes> seeds{
        good,
        joined({good, good}),
        oneRecord(0, Bytes(83, 'x')),
        oneRecord(1, {1, 0, 0, 0}),
        oneRecord(38, {0, 0, 0, 0, 12, 2, 1, 0xFF, 0xF0, 0x01}),
        oneRecord(38, {0, 0, 0, 0, 3, 2, 12, 1, 2, 3, 4, 5, 6, 7, 8, 9}),
        oneRecord(46,
                  {0, 0, 0, 250, 3, 2, 24, 255, 255, 255, 255, 3, 1, 2, 3, 255, 255, 255, 255, 1, 0, 0, 0, 2, 9, 9, 9}),
        oneRecord(40, Bytes(14)),
        oneRecord(41, BootRecords::request(9, 1)),
        oneRecord(44, BootRecords::chunk(1, 0, Bytes(9))),
        oneRecord(5, Bytes(16384 - 11)),
        oneRecord(5, Bytes(16384)),
    };
    Random random(7);
    HandmadeCapture capture;
    capture.enumerate(2); // device 3 has no ids
    constexpr unsigned int mutations = 2000;
    for (unsigned int i = 0; i < mutations; ++i) {
        Bytes data = seeds[random.below(static_cast<unsigned int>(seeds.size()))];
        // The beginning has the lengths and types.
        for (unsigned int flips = random.below(4); flips > 0; --flips)
            data[random.below(random.oneIn(2) ? static_cast<unsigned int>(std::min(data.size(), std::size_t{20}))
                                              : static_cast<unsigned int>(data.size()))] =
                static_cast<std::uint8_t>(random.oneIn(2) ? random.below(256) : random.below(3));
        if (random.oneIn(3))
            data.resize(random.below(static_cast<unsigned int>(data.size()) + 20) + 1);
        const std::size_t kept = random.oneIn(5) ? random.below(static_cast<unsigned int>(data.size())) : capture.whole;
        const auto device = static_cast<std::uint8_t>(random.between(2, 3));
        random.oneIn(3) ? capture.in(device, data, kept) : capture.out(device, data, kept);
    }
    const TemporaryFile file(capture.getFile());
    const std::string seen = runTshark({"-r", file.getPath(), "-2", "-Y", "morvane || _ws.lua.error", "-T", "fields",
                                        "-e", "frame.number", "-e", "_ws.expert.message"});
    EXPECT_EQ(seen.find("Lua Error"), std::string::npos) << seen.substr(seen.find("Lua Error"), 300);
    // Most of them, but those that no ids and no form show.
    EXPECT_THAT(splitAt(seen, '\n').size(), testing::Gt(mutations * 3 / 4));
}

} // namespace
} // namespace Vantor
