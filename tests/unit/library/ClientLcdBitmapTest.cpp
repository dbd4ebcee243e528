#include "libMorvaneHostUsb/ClientLcdBitmap.h"

#include "tests/support/PackedBytes.h"

#include <type_traits>

#include <gtest/gtest.h>

namespace Vantor {

static_assert(std::is_same_v<decltype(ClientLcdBitmap::lcd), std::uint16_t>);
static_assert(std::is_same_v<decltype(ClientLcdBitmap::encodedSize), std::uint32_t>);
static_assert(std::is_same_v<decltype(ClientLcdBitmap::byteOffset), std::uint32_t>);
static_assert(std::is_same_v<decltype(ClientLcdBitmap::rowOffset), std::uint8_t>);

TEST(ClientLcdBitmap, fresh_hasItsGeometryAndZerosElsewhere)
{
    const ClientLcdBitmap bitmap(128, 64, 1);
    EXPECT_EQ(bitmap.width, 128);
    EXPECT_EQ(bitmap.height, 64);
    EXPECT_EQ(bitmap.bitsPerPixel, 1);
    EXPECT_EQ(bitmap.lcd, 0);
    EXPECT_EQ(bitmap.x, 0);
    EXPECT_EQ(bitmap.y, 0);
    EXPECT_EQ(bitmap.encoded, 0);
    EXPECT_EQ(bitmap.encodedSize, 0u);
    EXPECT_EQ(bitmap.byteOffset, 0u);
    EXPECT_EQ(bitmap.rowOffset, 0);
    EXPECT_EQ(bitmap.complete, 0);
    EXPECT_EQ(bitmap.buffer, Bytes(1024, 0));
}

TEST(ClientLcdBitmap, buffer_countsBitsOfTheWholePicture)
{
    EXPECT_EQ(ClientLcdBitmap(5, 3, 1).size(), 2u); // 15 bits, rows not rounded up
    EXPECT_EQ(ClientLcdBitmap(8, 1, 1).size(), 1u);
    EXPECT_EQ(ClientLcdBitmap(3, 3, 1).size(), 2u); // 9 bits
    EXPECT_EQ(ClientLcdBitmap(255, 255, 24).size(), 195075u);
    EXPECT_EQ(ClientLcdBitmap(255, 255, 255).size(), 2072672u);
    EXPECT_EQ(ClientLcdBitmap(0, 64, 8).size(), 0u);
    EXPECT_EQ(ClientLcdBitmap(64, 0, 8).size(), 0u);
    EXPECT_EQ(ClientLcdBitmap(64, 64, 0).size(), 0u);
}

TEST(ClientLcdBitmap, fields_standInTheirOrder)
{
    const ClientLcdBitmap bitmap(1, 1, 1);
    const void* const fields[] = {&bitmap.lcd,        &bitmap.x,           &bitmap.y,
                                  &bitmap.width,      &bitmap.height,      &bitmap.bitsPerPixel,
                                  &bitmap.encoded,    &bitmap.encodedSize, &bitmap.buffer,
                                  &bitmap.byteOffset, &bitmap.rowOffset,   &bitmap.complete};
    for (std::size_t i = 1; i < std::size(fields); ++i)
        EXPECT_LT(fields[i - 1], fields[i]);
}

TEST(ClientLcdBitmap, assignmentOfAHalfSentBitmap_startsAgainAtRow0)
{
    ClientLcdBitmap source(16, 4, 1);
    source.lcd = 0x1234;
    source.x = 10;
    source.y = 20;
    source.encoded = 1;
    source.encodedSize = 5;
    source.buffer = {1, 2, 3};
    source.byteOffset = 2;
    source.rowOffset = 1;
    source.complete = 1;
    ClientLcdBitmap target(1, 1, 24);
    target.byteOffset = 7;
    target.rowOffset = 7;
    target.complete = 1;
    target = source;
    EXPECT_EQ(target.lcd, 0x1234);
    EXPECT_EQ(target.x, 10);
    EXPECT_EQ(target.y, 20);
    EXPECT_EQ(target.width, 16);
    EXPECT_EQ(target.height, 4);
    EXPECT_EQ(target.bitsPerPixel, 1);
    EXPECT_EQ(target.encoded, 1);
    EXPECT_EQ(target.encodedSize, 5u);
    EXPECT_EQ(target.buffer, (Bytes{1, 2, 3}));
    EXPECT_EQ(target.byteOffset, 0u);
    EXPECT_EQ(target.rowOffset, 0);
    EXPECT_EQ(target.complete, 0);
}

TEST(ClientLcdBitmap, copyOfAHalfSentBitmap_startsAgainAtRow0)
{
    ClientLcdBitmap bitmap(16, 4, 1);
    bitmap.lcd = 0x1234;
    bitmap.x = 10;
    bitmap.y = 20;
    bitmap.encoded = 1;
    bitmap.encodedSize = 5;
    bitmap.buffer = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    bitmap.byteOffset = 4;
    bitmap.rowOffset = 2;
    bitmap.complete = 1;

    const ClientLcdBitmap copy(bitmap);
    EXPECT_EQ(copy.lcd, 0x1234);
    EXPECT_EQ(copy.x, 10);
    EXPECT_EQ(copy.y, 20);
    EXPECT_EQ(copy.width, 16);
    EXPECT_EQ(copy.height, 4);
    EXPECT_EQ(copy.bitsPerPixel, 1);
    EXPECT_EQ(copy.encoded, 1);
    EXPECT_EQ(copy.encodedSize, 5u);
    EXPECT_EQ(copy.buffer, bitmap.buffer);
    EXPECT_EQ(copy.byteOffset, 0u);
    EXPECT_EQ(copy.rowOffset, 0);
    EXPECT_EQ(copy.complete, 0);
    EXPECT_EQ(bitmap.byteOffset, 4u);
}

TEST(ClientLcdBitmap, data_isTheBuffer)
{
    ClientLcdBitmap bitmap(16, 1, 1);
    bitmap.data()[1] = 0x5A;
    EXPECT_EQ(bitmap.buffer, (Bytes{0, 0x5A}));
    const ClientLcdBitmap& constant = bitmap;
    EXPECT_EQ(constant.data(), bitmap.buffer.data());
    bitmap.buffer.resize(7);
    EXPECT_EQ(constant.size(), 7u);
}

} // namespace Vantor
