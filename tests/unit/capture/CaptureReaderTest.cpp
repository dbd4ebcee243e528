#include "simulator/capture/CaptureReader.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/UrbText.h"
#include "tests/unit/capture/CaptureBytes.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using namespace std::chrono_literals;

using testing::AllOf;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

using Urbs = std::vector<CapturedUrb>;

auto membersOf(const CapturedUrb& urb)
{
    return std::tie(urb.id, urb.event, urb.transfer, urb.endpoint, urb.device, urb.bus, urb.setupFlag, urb.dataFlag,
                    urb.status, urb.length, urb.presentLength, urb.setup, urb.interval, urb.flags, urb.data, urb.time,
                    urb.flaw);
}

MATCHER_P(IsUrb, expected, "")
{
    return membersOf(arg) == membersOf(expected);
}

struct Reading {
    Urbs urbs;
    std::string error;
};

Reading readFile(const Bytes& bytes)
{
    const TemporaryFile file(bytes);
    Reading reading;
    try {
        CaptureReader reader(file.getPath());
        while (auto urb = reader.next())
            reading.urbs.push_back(std::move(*urb));
    } catch (const std::runtime_error& error) {
        reading.error = error.what();
    }
    return reading;
}

Urbs readWhole(const Bytes& bytes)
{
    Reading reading = readFile(bytes);
    EXPECT_EQ(reading.error, "");
    return reading.urbs;
}

// The frames of CaptureBytes as a capture, after `change` to the first of them.
template <typename Change> Bytes withFirst(const Change& change)
{
    Bytes first = CaptureBytes::submittedWrite;
    change(first);
    return joined({CaptureBytes::fileHeader, first, CaptureBytes::completedRead});
}

// Offsets in a frame, with what pcap puts before it.
constexpr std::size_t capturedAt = 8;
constexpr std::size_t originalAt = 12;
constexpr std::size_t presentAt = 16 + 36;
constexpr std::size_t lengthAt = 16 + 32;

TEST(CaptureReader, whatTheWritersFormatHas_isRead)
{
    const Urbs urbs =
        readWhole(joined({CaptureBytes::fileHeader, CaptureBytes::submittedWrite, CaptureBytes::completedRead}));
    ASSERT_EQ(urbs.size(), 2U);
    EXPECT_THAT(urbs[0], IsUrb(CaptureBytes::makeSubmittedWrite()));
    EXPECT_THAT(urbs[1], IsUrb(CaptureBytes::makeCompletedRead()));
}

TEST(CaptureReader, aControlRequest_hasItsSetupAndNoData)
{
    const Urbs urbs = readWhole(joined(
        {CaptureBytes::fileHeader,
         {
             0, 0, 0,    0, 0,   0, 0, 0, 64, 0, 0, 0, 64, 0, 0, 0, 9, 0,    0,    0,    0,    0,  0, 0, 'S', 2, 0x80,
             2, 1, 0,    0, '<', 0, 0, 0, 0,  0, 0, 0, 0,  0, 0, 0, 0, 0x8D, 0xFF, 0xFF, 0xFF, 18, 0, 0, 0,   0, 0,
             0, 0, 0x80, 6, 0,   1, 0, 0, 18, 0, 0, 0, 0,  0, 0, 0, 0, 0,    0,    2,    0,    0,  0, 0, 0,   0,
         }}));
    CapturedUrb expected;
    expected.id = 9;
    expected.transfer = CapturedUrb::Transfer::Control;
    expected.endpoint = 0x80;
    expected.device = 2;
    expected.bus = 1;
    expected.setupFlag = 0;
    expected.dataFlag = '<';
    expected.status = -115;
    expected.length = 18;
    expected.setup = {0x80, 6, 0, 1, 0, 0, 18, 0};
    expected.flags = 0x200;
    ASSERT_EQ(urbs.size(), 1U);
    EXPECT_THAT(urbs[0], IsUrb(expected));
}

TEST(CaptureReader, microseconds_areNanosecondsAThousandTimes)
{
    Bytes header = CaptureBytes::fileHeader;
    header[0] = 0xD4; // pcap's first magic
    header[1] = 0xC3;
    Bytes frame = CaptureBytes::completedRead;
    frame[4] = 7;
    const Urbs urbs = readWhole(joined({header, frame}));
    ASSERT_EQ(urbs.size(), 1U);
    EXPECT_EQ(urbs[0].time, 1700000001s + 7us);
}

TEST(CaptureReader, theOtherByteOrder_isUnderstood)
{
    const Urbs urbs = readWhole({
        0xA1, 0xB2, 0x3C, 0x4D, 0,    2,    0,    4,    0,    0,    0,    0,    0,    0,    0,    0,    0,    4,
        0,    0,    0,    0,    0,    220,  0x65, 0x53, 0xF1, 0x00, 0x07, 0x5B, 0xCD, 0x15, 0,    0,    0,    68,
        0,    0,    0,    68,   0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 'S',  3,    0x02, 5,    0,    1,
        '-',  0,    0,    0,    0,    0,    0x65, 0x53, 0xF1, 0x00, 0x00, 0x01, 0xE2, 0x40, 0xFF, 0xFF, 0xFF, 0x8D,
        0,    0,    0,    4,    0,    0,    0,    4,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0,
        0,    0,    0,    0,    0,    0,    0,    0,    0,    0x40, 0,    0,    0,    0,    0xDE, 0xAD, 0xBE, 0xEF,
    });
    ASSERT_EQ(urbs.size(), 1U);
    EXPECT_THAT(urbs[0], IsUrb(CaptureBytes::makeSubmittedWrite()));
}

TEST(CaptureReader, theShortHeader_ofLinkType189_isUnderstood)
{
    Bytes header = CaptureBytes::fileHeader;
    header[20] = 189;
    Bytes frame = CaptureBytes::submittedWrite;
    frame.erase(frame.begin() + 16 + 48, frame.begin() + 16 + 64);
    frame[capturedAt] = frame[originalAt] = 52;
    const Urbs urbs = readWhole(joined({header, frame}));
    CapturedUrb expected = CaptureBytes::makeSubmittedWrite();
    expected.flags = 0;
    ASSERT_EQ(urbs.size(), 1U);
    EXPECT_THAT(urbs[0], IsUrb(expected));
}

TEST(CaptureReader, pcapng_isUnderstood)
{
    const Bytes section = {0x0A, 0x0D, 0x0D, 0x0A, 28,   0,    0,    0,    0x4D, 0x3C, 0x2B, 0x1A, 1, 0,
                           0,    0,    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 28,   0,    0, 0};
    // Link type 220, longest frame 262144, times in 10^-9 s.
    const Bytes interface = {1, 0, 0, 0, 32, 0, 0, 0, 220, 0, 0, 0, 0,  0, 4, 0,
                             9, 0, 1, 0, 9,  0, 0, 0, 0,   0, 0, 0, 32, 0, 0, 0};
    // 1700000000123456789 ns = 0x17979CFE3D85CD15
    const Bytes packet = {6,    0,    0,    0,    100,  0,    0,  0, 0, 0, 0,  0, 0xFE, 0x9C,
                          0x97, 0x17, 0x15, 0xCD, 0x85, 0x3D, 68, 0, 0, 0, 68, 0, 0,    0};
    const Bytes frame(CaptureBytes::submittedWrite.begin() + 16, CaptureBytes::submittedWrite.end());
    const Urbs urbs = readWhole(joined({section, interface, packet, frame, {100, 0, 0, 0}}));
    ASSERT_EQ(urbs.size(), 1U);
    EXPECT_THAT(urbs[0], IsUrb(CaptureBytes::makeSubmittedWrite()));
}

TEST(CaptureReader, aFrameShorterThanItsHeader_isMarkedAndTheNextIsRead)
{
    const Urbs urbs = readWhole(withFirst([](Bytes& frame) {
        frame.resize(16 + 63);
        frame[capturedAt] = frame[originalAt] = 63;
    }));
    CapturedUrb expected;
    expected.time = 1700000000s + 123456789ns;
    expected.flaw = CapturedUrb::Flaw::NoHeader;
    ASSERT_EQ(urbs.size(), 2U);
    EXPECT_THAT(urbs[0], IsUrb(expected));
    EXPECT_THAT(urbs[1], IsUrb(CaptureBytes::makeCompletedRead()));
}

TEST(CaptureReader, aSnappedFrame_isMarkedAndHasWhatIsThere)
{
    const Urbs urbs = readWhole(withFirst([](Bytes& frame) {
        frame.resize(16 + 66);
        frame[capturedAt] = 66;
    }));
    CapturedUrb expected = CaptureBytes::makeSubmittedWrite();
    expected.data = {0xDE, 0xAD};
    expected.flaw = CapturedUrb::Flaw::Snapped;
    ASSERT_EQ(urbs.size(), 2U);
    EXPECT_THAT(urbs[0], IsUrb(expected));
}

TEST(CaptureReader, aTransferThatTheKernelCutOff_isMarked)
{
    const Urbs urbs = readWhole(withFirst([](Bytes& frame) { frame[lengthAt] = 5; }));
    ASSERT_EQ(urbs.size(), 2U);
    EXPECT_EQ(urbs[0].flaw, CapturedUrb::Flaw::Snapped);
    EXPECT_EQ(urbs[0].length, 5U);
    EXPECT_EQ(urbs[0].data, (Bytes{0xDE, 0xAD, 0xBE, 0xEF}));
}

TEST(CaptureReader, aFrameWithLessDataThanItsHeaderSays_isMarkedAndHasWhatIsThere)
{
    const Urbs urbs = readWhole(withFirst([](Bytes& frame) {
        for (std::size_t i = 0; i < 4; ++i)
            frame[presentAt + i] = 0xFF;
    }));
    ASSERT_EQ(urbs.size(), 2U);
    EXPECT_EQ(urbs[0].flaw, CapturedUrb::Flaw::TooShort);
    EXPECT_EQ(urbs[0].presentLength, 0xFFFFFFFF);
    EXPECT_EQ(urbs[0].data, (Bytes{0xDE, 0xAD, 0xBE, 0xEF}));
}

TEST(CaptureReader, aFileThatEndsWithinAFrame_isAnErrorBehindTheFramesBefore)
{
    Bytes file = joined({CaptureBytes::fileHeader, CaptureBytes::submittedWrite, CaptureBytes::completedRead});
    file.pop_back();
    const Reading reading = readFile(file);
    EXPECT_EQ(reading.urbs.size(), 1U);
    EXPECT_THAT(reading.error, AllOf(StartsWith("behind frame 1: "), HasSubstr("truncated")));
}

TEST(CaptureReader, afterAnError_thereIsNothingMore)
{
    Bytes bytes = joined({CaptureBytes::fileHeader, CaptureBytes::submittedWrite});
    bytes.pop_back();
    const TemporaryFile file(bytes);
    CaptureReader reader(file.getPath());
    EXPECT_THROW(reader.next(), std::runtime_error);
    EXPECT_FALSE(reader.next().has_value());
}

TEST(CaptureReader, anotherLinkType_isRefusedByName)
{
    Bytes header = CaptureBytes::fileHeader;
    header[20] = 1;
    EXPECT_EQ(readFile(header).error, "it has link type 1 (EN10MB), a capture of Linux's USB has 220 or 189");
}

TEST(CaptureReader, whatIsNoCapture_isRefused)
{
    EXPECT_THAT(readFile(Bytes(100, 'x')).error, HasSubstr("unknown file format"));
    EXPECT_THAT(readFile({}).error, HasSubstr("truncated"));
    Bytes compressed(100, 0);
    compressed[0] = 0x1F;
    compressed[1] = 0x8B;
    EXPECT_EQ(readFile(compressed).error, "it is compressed: gunzip it first");
}

TEST(CaptureReader, aFileThatIsNotThere_isRefused)
{
    const TemporaryFolder folder;
    EXPECT_THROW(CaptureReader(folder / "none"), std::runtime_error);
    EXPECT_THROW(CaptureReader(folder.getPath()), std::runtime_error);
}

// By tcpdump, of a panel at address 7 behind a hub at address 1.
TEST(CaptureReader, aCaptureOfTheKernel_isWhole)
{
    std::vector<std::string> panels;
    for (const CapturedUrb& urb : readCapture(MORVANE_CAPTURES "/guest-usbmon.pcap")) {
        EXPECT_EQ(urb.flaw, CapturedUrb::Flaw::None) << textOf(urb);
        EXPECT_EQ(urb.bus, 1);
        if (urb.device == 7)
            panels.push_back(textOf(urb));
    }
    const std::string record = "S bulk 02 -115 14 0e00010000000000050300010203";
    const std::string arrival = "C bulk 81 0 14 0e00010001000000140300aabbcc";
    EXPECT_EQ(std::count(panels.begin(), panels.end(), record), 3);
    EXPECT_EQ(std::count(panels.begin(), panels.end(), arrival), 2);
    for (const std::string& text : {enumerationTexts[1], enumerationTexts[3]})
        EXPECT_THAT(panels, testing::Contains(text));
}

// Under the sanitizers, too: a file is another's word.
TEST(CaptureReader, anyByteDamaged_isReadOrRefused)
{
    const Bytes whole = joined({CaptureBytes::fileHeader, CaptureBytes::submittedWrite, CaptureBytes::completedRead});
    for (std::size_t i = 0; i < whole.size(); ++i) {
        for (const std::uint8_t value : Bytes{0x00, 0x7F, 0x80, 0xFF}) {
            Bytes damaged = whole;
            damaged[i] = value;
            EXPECT_LE(readFile(damaged).urbs.size(), 2U) << i;
        }
    }
}

} // namespace
} // namespace Vantor
