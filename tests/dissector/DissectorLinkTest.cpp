#include "tests/dissector/Dissection.h"
#include "tests/dissector/HandmadeCapture.h"
#include "tests/dissector/SamplePackets.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ToolRun.h"

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

constexpr std::uint8_t other = 3;

const Bytes miscounted{13, 0, 9, 0, 0, 0, 0, 0, 5, 2, 0, 0xAA, 0xBB};
const char* const miscountedText = "byte 0: packet counts 9 records, it holds 1";

// One record of type 5 whose bytes tell where they are; `size` in all.
Bytes large(std::size_t size)
{
    Bytes packet{static_cast<std::uint8_t>(size),      static_cast<std::uint8_t>(size >> 8),       1, 0, 0, 0, 0, 0, 5,
                 static_cast<std::uint8_t>(size - 11), static_cast<std::uint8_t>((size - 11) >> 8)};
    for (std::size_t i = packet.size(); i < size; ++i)
        packet.push_back(static_cast<std::uint8_t>(i * 7 + i / 256));
    return packet;
}

std::string hexOf(const Bytes& bytes, std::size_t from)
{
    static const char* const digits = "0123456789abcdef";
    std::string text;
    for (std::size_t i = from; i < bytes.size(); ++i)
        text += {digits[bytes[i] / 16], digits[bytes[i] % 16]};
    return text;
}

Bytes partOf(const Bytes& bytes, std::size_t from, std::size_t to)
{
    return {bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.begin() + static_cast<std::ptrdiff_t>(to)};
}

TEST(DissectorLink, idsInTheCapture_decide)
{
    HandmadeCapture capture;
    capture.enumerate(panel);
    capture.enumerate(other, 0x1234, 0x5678);
    const auto wrong = capture.out(panel, miscounted);
    const auto rest = capture.out(panel, {7});
    const auto text = capture.out(other, Bytes(64, 'a'));
    const auto wrongOfOther = capture.out(other, miscounted);
    const auto fromOther = capture.in(other, {'h', 'e', 'l', 'l', 'o'});
    const auto plain = capture.out(other, good);
    const auto wrongBehind = capture.out(other, miscounted);
    const Dissection seen(capture);

    EXPECT_THAT(seen.faultsOf(wrong), ElementsAre(miscountedText));
    EXPECT_THAT(seen.faultsOf(rest), ElementsAre("byte 0: 1 byte, a packet header has 8"));
    EXPECT_TRUE(seen.has(plain));
    for (const auto frame : {text, wrongOfOther, fromOther, wrongBehind})
        EXPECT_FALSE(seen.has(frame)) << frame;
}

TEST(DissectorLink, noIdsInTheCapture_aPlainPacketShowsThePanel)
{
    HandmadeCapture capture;
    const auto before = capture.out(panel, miscounted);
    const auto foreign = capture.out(other, Bytes(64, 'a'));
    const auto plain = capture.out(panel, good);
    const auto after = capture.out(panel, miscounted);
    const auto back = capture.in(panel, {3, 0, 0, 0, 0, 0, 0, 0});
    const auto foreignAfter = capture.out(other, miscounted);
    {
        const Dissection seen(capture);
        EXPECT_TRUE(seen.has(plain));
        EXPECT_THAT(seen.faultsOf(after), ElementsAre(miscountedText));
        EXPECT_THAT(seen.faultsOf(back), ElementsAre("byte 0: packet length 3 is less than its header of 8 bytes"));
        for (const auto frame : {before, foreign, foreignAfter})
            EXPECT_FALSE(seen.has(frame)) << frame;
    }
    const Dissection chosen(capture, {"-d", "usb.device==0x00010003,morvane"});
    EXPECT_THAT(chosen.faultsOf(foreignAfter), ElementsAre(miscountedText));
    EXPECT_FALSE(chosen.has(before));
}

TEST(DissectorLink, packetsWithAFlaw_showNoPanel)
{
    HandmadeCapture capture;
    std::uint8_t device = 10; // another one each time
    const auto out = [&](const Bytes& data) { return capture.out(device++, data); };
    const auto in = [&](const Bytes& data) { return capture.in(device++, data); };
    const Bytes fromPanel{13, 0, 1, 0, 9, 8, 7, 6, 5, 2, 0, 0xAA, 0xBB};
    const std::vector<unsigned int> plain{
        out(good),
        out({14, 0, 2, 0, 0, 0, 0, 0, 2, 0, 0, 45, 0, 0}),
        out(oneRecord(1, {1, 0, 0, 0})),
        in(joined({fromPanel, good})),
        in(oneRecord(40, Bytes(14))),
    };
    const std::vector<unsigned int> flawed{
        out(fromPanel),                                      // a device id
        out(miscounted),                                     //
        out(joined({good, good})),                           // a second packet
        out({8, 0, 0, 0, 0, 0, 0, 0}),                       // no record
        out({12, 0, 1, 0, 0, 0, 0, 0, 5, 2, 0, 0xAA}),       // a record that reaches too far
        out({13, 0, 1, 0, 0, 0, 0, 0, 5, 0, 0, 0xAA, 0xBB}), // rests
        out({14, 0, 1, 0, 0, 0, 0, 0, 5, 2, 0, 0xAA, 0xBB}), // a packet that does
        out(oneRecord(47, {1, 2})),                          // beyond the types
        out(oneRecord(1, {1})),                              // of a wrong size
        out(oneRecord(38, Bytes(6))),                        //
        out(oneRecord(40, Bytes(14))),                       // from the wrong side
        in(oneRecord(1, {1, 0, 0, 0})),                      //
        in(joined({fromPanel, {1}})),                        //
        in(joined({fromPanel, miscounted})),                 //
    };
    const Dissection seen(capture);
    for (const auto frame : plain)
        EXPECT_TRUE(seen.has(frame)) << frame;
    for (const auto frame : flawed)
        EXPECT_FALSE(seen.has(frame)) << frame;
}

// A device that comes after the panel under its number.
TEST(DissectorLink, numberThatAnotherDeviceGets_isNoPanelsAnyMore)
{
    HandmadeCapture capture;
    capture.enumerate(panel);
    const auto before = capture.out(panel, miscounted);
    capture.enumerate(panel, 0x1234, 0x5678);
    const auto after = capture.out(panel, miscounted);
    const Dissection seen(capture);
    EXPECT_TRUE(seen.has(before));
    EXPECT_FALSE(seen.has(after));
}

TEST(DissectorLink, idsThatComeLate_countForAllInTheSecondPass)
{
    HandmadeCapture capture;
    const auto before = capture.out(panel, miscounted);
    capture.enumerate(panel);
    const auto after = capture.out(panel, miscounted);
    EXPECT_FALSE(Dissection(capture).has(before));
    const Dissection seen(capture, {"-2"});
    EXPECT_THAT(seen.faultsOf(before), ElementsAre(miscountedText));
    EXPECT_THAT(seen.faultsOf(after), ElementsAre(miscountedText));
}

TEST(DissectorLink, otherIds_byPreferenceOrByTheBuild)
{
    HandmadeCapture capture;
    capture.enumerate(panel);
    capture.enumerate(other, 0x1A2B, 0xBEEF);
    const auto development = capture.out(panel, miscounted);
    const auto production = capture.out(other, miscounted);
    const TemporaryFile file(capture.getFile());

    const Dissection preferred(file.getPath(), {"-o", "morvane.ids:1a2b:beef"});
    EXPECT_FALSE(preferred.has(development));
    EXPECT_TRUE(preferred.has(production));

    // What the configuring of a build makes of it.
    std::string script = contentOf(MORVANE_DISSECTOR);
    const std::string mark = "@MORVANE_PRODUCTION_VENDOR_ID@";
    ASSERT_EQ(script.find(mark), script.rfind(mark));
    script.replace(script.find(mark), mark.size(), "0x1A2B");
    const TemporaryFolder folder;
    writeFile(folder / "morvane.lua", script);
    const Dissection configured(file.getPath(), {}, folder / "morvane.lua");
    EXPECT_TRUE(configured.has(development));
    EXPECT_TRUE(configured.has(production));
}

// What tshark says of it beside the frames.
std::string complaintsOf(const std::vector<std::string>& arguments)
{
    const TemporaryFolder home;
    ToolRun::Arguments command{"/usr/bin/env",
                               "-u",
                               "MORVANE_DISSECTOR",
                               "HOME=" + home.getPath(),
                               "XDG_CONFIG_HOME=" + home.getPath(),
                               MORVANE_TSHARK,
                               "-r",
                               MORVANE_GUEST_CAPTURE,
                               "-X",
                               "lua_script:" MORVANE_DISSECTOR};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const ToolResult result = runTool(command);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output, HasSubstr("Device information request"));
    return result.errors;
}

TEST(DissectorLink, idThatIsNone_isToldAndLeftOut)
{
    EXPECT_THAT(
        complaintsOf({"-o", "morvane.ids:dead:beef garbage"}),
        HasSubstr("morvane.ids: 'garbage' is no USB id: write vendor and product in hexadecimal, as in 1a2b:beef"));
    EXPECT_THAT(complaintsOf({}), Not(HasSubstr("morvane")));
}

TEST(DissectorLink, secondCopy_isToldAndLeftOut)
{
    const TemporaryFolder folder;
    const std::string copy = folder / "morvane.lua";
    writeFile(copy, contentOf(MORVANE_DISSECTOR));
    EXPECT_THAT(complaintsOf({"-X", "lua_script:" + copy}),
                HasSubstr("morvane.lua: another copy is loaded already, " + copy +
                          " is left out; MORVANE_DISSECTOR=PATH chooses one by its path"));
}

TEST(DissectorLink, packetsInSeveralUrbs_arePutTogether)
{
    const Bytes first = large(40000);
    const Bytes second = large(33000);
    HandmadeCapture capture;
    capture.enumerate(panel);
    capture.enumerate(other);
    // In turn, as two panels are written to at once.
    const auto firstBegins = capture.out(panel, partOf(first, 0, 16384));
    const auto secondBegins = capture.out(other, partOf(second, 0, 16384));
    const auto firstGoesOn = capture.out(panel, partOf(first, 16384, 32768));
    const auto secondGoesOn = capture.out(other, partOf(second, 16384, 32768));
    const auto secondEnds = capture.out(other, partOf(second, 32768, 33000));
    const auto firstEnds = capture.out(panel, partOf(first, 32768, 40000));
    // Three packets in two URBs, the second one in both.
    const auto several = capture.inInParts(panel, joined({large(16011), large(711), good}));
    // Of the second packet the first URB has five bytes of the header.
    const auto header = capture.inInParts(panel, joined({large(16379), large(711)}));
    const auto full = capture.outInParts(panel, large(16384));
    const auto next = capture.out(panel, good);
    const Dissection seen(capture, {"-2"});

    EXPECT_EQ(seen.of(firstBegins, "fragment.whole_in"), std::to_string(firstEnds));
    EXPECT_EQ(seen.of(firstGoesOn, "fragment.whole_in"), std::to_string(firstEnds));
    EXPECT_EQ(seen.of(secondBegins, "fragment.whole_in"), std::to_string(secondEnds));
    EXPECT_EQ(seen.of(secondGoesOn, "fragment.whole_in"), std::to_string(secondEnds));
    EXPECT_EQ(seen.of(firstBegins, "_ws.col.Info"), "Part of a packet of 40000 bytes: 16384 bytes");
    EXPECT_EQ(seen.of(firstBegins, "type"), "");
    EXPECT_EQ(seen.of(firstEnds, "fragment.part_in"),
              std::to_string(firstBegins) + "|" + std::to_string(firstGoesOn) + "|" + std::to_string(firstEnds));
    EXPECT_EQ(seen.of(firstEnds, "length"), "40000");
    EXPECT_EQ(seen.of(firstEnds, "payload"), hexOf(first, 11));
    EXPECT_EQ(seen.of(secondEnds, "payload"), hexOf(second, 11));

    EXPECT_EQ(seen.of(several - 2, "length"), "16011");
    EXPECT_EQ(seen.of(several, "length"), "711|13");
    EXPECT_EQ(seen.of(several, "payload"), hexOf(large(711), 11) + "|aabb");
    EXPECT_EQ(seen.of(header - 2, "length"), "16379");
    EXPECT_EQ(seen.of(header, "length"), "711");
    EXPECT_EQ(seen.of(header, "payload"), hexOf(large(711), 11));
    EXPECT_EQ(seen.of(full, "length"), "16384");
    EXPECT_EQ(seen.of(next, "length"), "13");
    EXPECT_EQ(seen.size(), 12u);
    for (unsigned int frame = firstBegins; frame <= next; ++frame)
        EXPECT_EQ(seen.of(frame, "malformed") + seen.of(frame, "violation"), "") << frame;
}

TEST(DissectorLink, splitPacketsWithoutIds_areTakenWhole)
{
    HandmadeCapture capture;
    const auto last = capture.outInParts(panel, large(40000));
    const Dissection seen(capture);
    EXPECT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen.of(last, "payload"), hexOf(large(40000), 11));
}

} // namespace
} // namespace Vantor
