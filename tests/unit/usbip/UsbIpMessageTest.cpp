#include "simulator/usbip/UsbIpMessage.h"
#include "tests/unit/usbip/UsbIpBytes.h"

#include <cerrno>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using UsbIpMessage::ParsedRequest;
using UsbIpMessage::Submit;
using UsbIpMessage::Unlink;

ParsedRequest parse(const Bytes& header)
{
    return UsbIpMessage::parseRequest(header.data(), header.size());
}

std::string errorOf(const Bytes& header)
{
    const ParsedRequest parsed = parse(header);
    EXPECT_FALSE(parsed.request);
    return parsed.error;
}

// Submit number 258, device 1-2, in from endpoint 1, 512 bytes.
const std::vector<std::uint32_t> readWords{1, 0x102, 0x10002, 1, 1, 0x201, 0x200, 0, 0xFFFFFFFF, 0};

Bytes readWith(std::size_t word, std::uint32_t value)
{
    std::vector<std::uint32_t> words = readWords;
    words[word] = value;
    return usbIpHeader(words);
}

TEST(UsbIpMessage, submit_isReadFromBigEndianBytes)
{
    const Bytes header{0x00, 0x00, 0x00, 0x01, 0x01, 0x02, 0x03, 0x04, 0x00, 0x01, 0x00, 0x02, // submit, number, device
                       0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x0F, 0x00, 0x00, 0x02, 0x41, // in, endpoint 15, flags
                       0x00, 0x00, 0x12, 0x34, 0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, // length, frame, packets
                       0x00, 0x00, 0x00, 0x00, 0x80, 0x06, 0x00, 0x01, 0x00, 0x02, 0x12, 0x03}; // interval, set-up
    const ParsedRequest parsed = parse(header);
    ASSERT_TRUE(parsed.request) << parsed.error;
    const auto& submit = std::get<Submit>(*parsed.request);
    EXPECT_EQ(submit.sequence, 0x01020304U);
    EXPECT_TRUE(submit.isIn);
    EXPECT_EQ(submit.endpoint, 15);
    EXPECT_EQ(submit.flags, 0x241U);
    EXPECT_EQ(submit.length, 0x1234U);
    EXPECT_EQ(submit.packets, 0xFFFFFFFFU);
    // As the device gets it: not a number, so its bytes stay in their order.
    EXPECT_THAT(submit.setup, testing::ElementsAre(0x80, 0x06, 0x00, 0x01, 0x00, 0x02, 0x12, 0x03));
}

TEST(UsbIpMessage, submitOut_isNoRead)
{
    EXPECT_FALSE(std::get<Submit>(*parse(readWith(3, 0)).request).isIn);
}

TEST(UsbIpMessage, unlink_namesItsTarget)
{
    const ParsedRequest parsed = parse(usbIpHeader({2, 0x0A0B0C0D, 0x10002, 0, 0, 0x01020304}));
    ASSERT_TRUE(parsed.request) << parsed.error;
    const auto& unlink = std::get<Unlink>(*parsed.request);
    EXPECT_EQ(unlink.sequence, 0x0A0B0C0DU);
    EXPECT_EQ(unlink.target, 0x01020304U);
}

TEST(UsbIpMessage, headerTooShort_isRefused)
{
    const Bytes header = usbIpHeader(readWords);
    for (std::size_t size = 0; size < header.size(); ++size) {
        const ParsedRequest parsed = UsbIpMessage::parseRequest(header.data(), size);
        EXPECT_FALSE(parsed.request);
        EXPECT_EQ(parsed.error, "a header of " + std::to_string(size) + " bytes, it has 48");
    }
    EXPECT_TRUE(parse(header).request);
}

TEST(UsbIpMessage, unknownCommand_isRefused)
{
    for (const std::uint32_t command : {0U, 3U, 4U, 0x01000000U, 0xFFFFFFFFU})
        EXPECT_EQ(errorOf(readWith(0, command)),
                  "command " + std::to_string(command) + ", there are 1 (submit) and 2 (unlink)");
}

TEST(UsbIpMessage, directionAndEndpoint_haveTheirLimits)
{
    EXPECT_EQ(errorOf(readWith(3, 2)), "a transfer in direction 2, there are 0 (out) and 1 (in)");
    EXPECT_TRUE(parse(readWith(4, 15)).request);
    EXPECT_EQ(errorOf(readWith(4, 16)), "a transfer for endpoint 16, the highest is 15");
    EXPECT_EQ(errorOf(readWith(4, 0x100)), "a transfer for endpoint 256, the highest is 15");
}

TEST(UsbIpMessage, hugeTransfer_isRefused)
{
    EXPECT_TRUE(parse(readWith(6, 0x1000000)).request);
    EXPECT_EQ(errorOf(readWith(6, 0x1000001)), "a transfer of 16777217 bytes, at most 16777216 are taken");
    EXPECT_EQ(errorOf(readWith(6, 0xFFFFFFFF)), "a transfer of 4294967295 bytes, at most 16777216 are taken");
}

TEST(UsbIpMessage, isochronousTransfer_isRefused)
{
    EXPECT_TRUE(parse(readWith(8, 0)).request);
    for (const std::uint32_t packets : {1U, 0x7FFFFFFFU, 0xFFFFFFFEU})
        EXPECT_EQ(errorOf(readWith(8, packets)), "an isochronous transfer, a panel has none");
}

TEST(UsbIpMessage, submitReply_carriesTheData)
{
    const auto request = std::get<Submit>(*parse(usbIpHeader(readWords)).request);
    EXPECT_THAT(UsbIpMessage::makeSubmitReply(request, 0, 3, {0xAA, 0xBB, 0xCC}),
                testing::ElementsAre(0, 0, 0, 3, 0, 0, 1, 2, 0, 0, 0, 0, // reply to a submit, number 258
                                     0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, // no direction, no endpoint, status 0
                                     0, 0, 0, 3, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, // 3 bytes, not isochronous
                                     0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,             // no errors, padding
                                     0xAA, 0xBB, 0xCC));
}

TEST(UsbIpMessage, submitReply_statusIsNegative)
{
    const auto request = std::get<Submit>(*parse(readWith(8, 0)).request);
    EXPECT_EQ(UsbIpMessage::makeSubmitReply(request, -EPIPE, 0, {}), // 32
              usbIpHeader({3, 0x102, 0, 0, 0, 0xFFFFFFE0}));
}

TEST(UsbIpMessage, unlinkReply_saysWhoAnswers)
{
    EXPECT_EQ(UsbIpMessage::makeUnlinkReply({9, 8}, -ECONNRESET), // 104
              usbIpHeader({4, 9, 0, 0, 0, 0xFFFFFF98}));
    EXPECT_EQ(UsbIpMessage::makeUnlinkReply({9, 8}, 0), usbIpHeader({4, 9}));
}

} // namespace
} // namespace Vantor
