#include "libMorvaneHostUsb/UsbMessage.h"

#include <cstring>
#include <type_traits>

#include <gtest/gtest.h>

namespace Vantor {

static_assert(!std::is_copy_constructible_v<UsbMessage>);
static_assert(!std::is_copy_assignable_v<UsbMessage>);
static_assert(std::is_same_v<decltype(UsbMessage::id), std::uint16_t>);
static_assert(std::is_same_v<decltype(UsbMessage::size), std::uint16_t>);
static_assert(std::is_same_v<decltype(UsbMessage::data), std::uint8_t*>);

TEST(UsbMessage, id_isCutTo16Bits)
{
    EXPECT_EQ(UsbMessage(0x0102, 1).id, 0x0102);
    EXPECT_EQ(UsbMessage(0x12345678, 1).id, 0x5678);
}

TEST(UsbMessage, data_holdsSizeBytes)
{
    const UsbMessage message(1, 65535);
    EXPECT_EQ(message.size, 65535);
    ASSERT_NE(message.data, nullptr);
    std::memset(message.data, 0x5A, 65535); // a sanitizer sees a short array
    EXPECT_EQ(message.data[65534], 0x5A);
}

TEST(UsbMessage, size0_hasNoData)
{
    const UsbMessage message(1, 0);
    EXPECT_EQ(message.size, 0);
    EXPECT_EQ(message.data, nullptr);
}

} // namespace Vantor
