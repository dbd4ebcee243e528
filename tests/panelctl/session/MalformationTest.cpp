#include "panelctl/session/Malformation.h"

#include "tests/support/Bytes.h"

#include <gtest/gtest.h>

namespace Vantor {

namespace {

// A packet of 11 bytes with a record of type 5 without payload, and one of 13 with one of
// type 7 and two bytes.
const Bytes empty{11, 0, 1, 0, 0, 0, 0, 0, 5, 0, 0};
const Bytes pair{13, 0, 1, 0, 0, 0, 0, 0, 7, 2, 0, 0xAA, 0xBB};

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

void expectAt(const Bytes& buffer, std::size_t delivered, std::size_t offset, const std::string& kind,
              const std::string& text)
{
    const auto malformation = Malformation::find(buffer, delivered);
    ASSERT_TRUE(malformation) << text;
    EXPECT_EQ(malformation->offset, offset) << text;
    EXPECT_EQ(malformation->kind, kind) << text;
    EXPECT_EQ(malformation->text, text);
}

} // namespace

TEST(Malformation, everythingDelivered_isNone)
{
    EXPECT_FALSE(Malformation::find({}, 0));
    EXPECT_FALSE(Malformation::find({8, 0, 0, 0, 0, 0, 0, 0}, 0));
    EXPECT_FALSE(Malformation::find(empty, 1));
    EXPECT_FALSE(Malformation::find(empty + pair, 2));
}

TEST(Malformation, restTooShortForAPacket_isToldBehindWhatWasDelivered)
{
    expectAt(pair + Bytes{1, 2, 3}, 1, 13, "packet-header", "3 bytes, too few for a packet's header");
    expectAt(pair + Bytes{1}, 1, 13, "packet-header", "1 byte, too few for a packet's header");
}

TEST(Malformation, packetLengthThatCannotBe_isTold)
{
    expectAt({7, 0, 0, 0, 0, 0, 0, 0, 0}, 0, 0, "packet-length", "a packet of 7 bytes, less than its header has");
    expectAt({14, 0, 1, 0, 0, 0, 0, 0, 7, 2, 0, 0xAA, 0xBB}, 0, 0, "packet-length",
             "a packet of 14 bytes where 13 are left");
}

// Packet length 10: its record's header would have three bytes.
TEST(Malformation, restTooShortForARecord_isTold)
{
    expectAt({10, 0, 1, 0, 0, 0, 0, 0, 5, 0}, 0, 8, "record-header", "2 bytes, too few for a record's header");
}

TEST(Malformation, recordBeyondItsPacket_isToldWithItsType)
{
    expectAt(empty + Bytes{13, 0, 1, 0, 0, 0, 0, 0, 7, 3, 0, 0xAA, 0xBB}, 1, 19, "record-length",
             "a record of type 7 with 3 bytes where 2 are left");
    expectAt({12, 0, 1, 0, 0, 0, 0, 0, 255, 1, 1, 0}, 0, 8, "record-length",
             "a record of type 255 with 257 bytes where 1 is left");
}

// As by a protocol library with further rules.
TEST(Malformation, goodRecordThatWasNotDelivered_isToldAsRefused)
{
    expectAt(empty + pair, 1, 19, "refused", "a record of type 7 that the parser has refused");
}

// Or with other ones: what it understands is not malformed.
TEST(Malformation, moreDeliveredThanIsThere_isNone)
{
    EXPECT_FALSE(Malformation::find({7, 0, 0, 0, 0, 0, 0, 0, 0}, 1));
    EXPECT_FALSE(Malformation::find(empty, 2));
}

} // namespace Vantor
