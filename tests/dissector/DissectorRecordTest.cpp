#include "tests/dissector/Dissection.h"
#include "tests/support/Bytes.h"
#include "tests/support/PngSample.h"
#include "tests/support/Random.h"
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
using testing::IsEmpty;

// What panelsim records while programs run, against what its panels have at the end.

std::vector<unsigned int> framesWith(const Dissection& seen, const std::string& field)
{
    std::vector<unsigned int> frames;
    for (const unsigned int frame : seen.getFrames())
        if (!seen.of(frame, field).empty())
            frames.push_back(frame);
    return frames;
}

void expectNoFault(const Dissection& seen)
{
    for (const unsigned int frame : seen.getFrames())
        EXPECT_THAT(seen.faultsOf(frame), IsEmpty()) << frame;
}

Bytes bytesOf(const std::string& hex)
{
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

void record(const std::string& capture, ToolRun::Arguments bus, const ToolRun::Arguments& tool)
{
    bus.insert(bus.end(), {"--record", capture});
    const ToolResult result = runTool(panelctlOn(bus, tool));
    ASSERT_EQ(result.exitCode, 0) << result.errors;
}

// A screen drawn from rows of text; white before. Several slices of a frame stand behind one
// another.
Bytes drawnBy(const Dissection& seen, unsigned int width, unsigned int height)
{
    Bytes screen(std::size_t{width} * height, 255);
    for (const unsigned int frame : framesWith(seen, "slice")) {
        const auto columns = splitAt(seen.of(frame, "slice.x"), '|');
        const auto counts = splitAt(seen.of(frame, "slice.rows"), '|');
        const auto rows = splitAt(seen.of(frame, "slice.row"), '|');
        const auto pixels = splitAt(seen.of(frame, "slice.pixels"), '|');
        std::size_t next = 0;
        for (std::size_t slice = 0; slice < columns.size(); ++slice)
            for (std::size_t left = std::stoul(counts.at(slice)); left > 0; --left, ++next)
                for (std::size_t i = 0; i < pixels.at(next).size(); ++i)
                    screen.at(std::stoul(rows.at(next)) * width + std::stoul(columns[slice]) + i) =
                        pixels[next][i] == '#' ? 0 : 255;
    }
    return screen;
}

TEST(DissectorRecord, pictures_areThoseOnTheLcds)
{
    Random random(1);
    const TemporaryFolder folder;
    writeFile(folder / "grey.png", encodeGrey(60, 100, random.bytes(60 * 100)));
    for (const std::string how : {"--dither=stucki", "--encoded"}) {
        // The smallest limit, so that the picture goes in several slices.
        record(folder / "draw.pcap", {"--max-packet", "1025", "--png", folder.getPath()},
               {"draw", folder / "grey.png", "--lcd", "0", "--size", "60x100", "--at", "8,20", how});
        const Dissection seen(folder / "draw.pcap");
        EXPECT_GT(framesWith(seen, "slice").size(), how == "--encoded" ? 5u : 0u);
        expectNoFault(seen);
        const GreyFile screen = GreyFile::read(folder / "panel0-lcd0.png");
        EXPECT_EQ(drawnBy(seen, screen.width, screen.height), screen.pixels);
    }
}

TEST(DissectorRecord, upgrade_isWhatIsInTheFlash)
{
    Random random(2);
    const TemporaryFolder folder;
    writeFile(folder / "main.bin", random.bytes(10000));
    writeFile(folder / "servo.bin", random.bytes(5000));
    record(folder / "flash.pcap",
           {"--flash-dir", folder / "flash", "--chunk-time", "5ms", "--at", "0", "fault boot reply=F0 skip=2"},
           {"flash", "--main", folder / "main.bin", "--servo", folder / "servo.bin", "--yes"});
    const Dissection seen(folder / "flash.pcap");
    expectNoFault(seen);

    Bytes main;
    Bytes servo;
    for (const unsigned int frame : framesWith(seen, "firmware.data")) {
        Bytes& image = seen.of(frame, "firmware.board") == "1" ? main : servo;
        image.resize(std::stoul(seen.of(frame, "firmware.address")));
        const Bytes data = bytesOf(seen.of(frame, "firmware.data"));
        image.insert(image.end(), data.begin(), data.end());
    }
    EXPECT_EQ(main, contentOf<Bytes>(folder / "flash/panel0-main.bin"));
    EXPECT_EQ(servo, contentOf<Bytes>(folder / "flash/panel0-servo.bin"));

    std::vector<std::string> failed;
    for (const unsigned int frame : framesWith(seen, "firmware.reply"))
        if (seen.of(frame, "firmware.reply") == "0xf0")
            failed.push_back(seen.of(frame, "_ws.col.Info"));
    EXPECT_THAT(failed, ElementsAre("Firmware reply: write failed, main MCU at 4096"));
}

TEST(DissectorRecord, recordInSeveralUrbs_isTheOneThatWasSent)
{
    Random random(3);
    const Bytes payload = random.bytes(40000);
    const TemporaryFolder folder;
    writeFile(folder / "payload", payload);
    record(folder / "send.pcap", {"--max-packet", "65000", "--no-scatter-gather"},
           {"send", "--type", "5", "--file", folder / "payload"});
    const Dissection seen(folder / "send.pcap");
    expectNoFault(seen);
    const auto frames = framesWith(seen, "payload");
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(bytesOf(seen.of(frames[0], "payload")), payload);
    EXPECT_THAT(splitAt(seen.of(frames[0], "fragment.part_in"), '|').size(), 3u);
}

// Taken by the kernel's usbmon in the guest: tests/system/guest/capture.sh says what was done.
TEST(DissectorRecord, captureOfAKernel_saysWhatWasDone)
{
    const Dissection seen(MORVANE_GUEST_CAPTURE);
    std::vector<std::string> told;
    for (const unsigned int frame : seen.getFrames())
        if (seen.of(frame, "info").empty())
            told.push_back(seen.of(frame, "_ws.col.Info") + " " + seen.of(frame, "payload"));
    EXPECT_THAT(told, ElementsAre("Record 5, 3 bytes 010203", "Record 5, 3 bytes 010203", "Record 5, 3 bytes 010203",
                                  "Record 20, 3 bytes aabbcc", "Record 20, 3 bytes aabbcc",
                                  "Slice LCD 1, 24x16 at 0,0, packed "));
    EXPECT_EQ(seen.getFrames().size(), told.size() + 6);
    expectNoFault(seen);
}

} // namespace
} // namespace Vantor
