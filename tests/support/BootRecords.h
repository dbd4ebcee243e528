#pragma once

#include "tests/support/Bytes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>

namespace Vantor {

// The payloads of firmware records as the wire's description has them, built byte by
// byte: no record type and no checksum function of the code under test.
namespace BootRecords {

constexpr std::uint8_t mainBoard = 1;
constexpr std::uint8_t servoBoard = 15;

// Renews the checksum, the last four bytes.
inline Bytes sign(Bytes bytes)
{
    put(bytes, bytes.size() - 4, std::accumulate(bytes.begin(), bytes.end() - 4, std::uint32_t{0}));
    return bytes;
}

inline Bytes request(std::uint32_t mainSize, std::uint32_t mainCrc, std::uint32_t servoSize = 0,
                     std::uint32_t servoCrc = 0)
{
    Bytes bytes(34);
    put(bytes, 10, mainSize);
    put(bytes, 14, mainCrc);
    bytes[19] = 0x30;
    put(bytes, 22, servoSize);
    put(bytes, 26, servoCrc);
    return sign(bytes);
}

// Behind the data, the bytes that an earlier chunk left there.
inline Bytes chunk(std::uint8_t board, std::uint32_t address, const Bytes& data)
{
    Bytes bytes(4109, 0xEE);
    bytes[0] = board;
    put(bytes, 1, address);
    put(bytes, 5, static_cast<std::uint32_t>(data.size()));
    std::copy(data.begin(), data.end(), bytes.begin() + 9);
    return sign(bytes);
}

inline Bytes reply(std::uint8_t command, std::uint8_t board = 0, std::uint32_t address = 0, std::uint32_t length = 0,
                   std::uint32_t checksum = 0)
{
    Bytes bytes(14);
    bytes[0] = command;
    bytes[1] = board;
    put(bytes, 2, address);
    put(bytes, 6, length);
    put(bytes, 10, checksum);
    return bytes;
}

// The checksum that a record carries.
inline std::uint32_t checksumOf(const Bytes& record)
{
    std::uint32_t checksum = 0;
    for (std::size_t i = 0; i < 4; ++i)
        checksum |= static_cast<std::uint32_t>(record[record.size() - 4 + i]) << (8 * i);
    return checksum;
}

// An image whose bytes tell where they belong, and below its CRC-32 by size, from zlib.
inline Bytes image(std::size_t size)
{
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 256);
    return bytes;
}

constexpr std::uint32_t crcOf4096 = 0x462C1E21;
constexpr std::uint32_t crcOf5000 = 0xA4F08D8E;
constexpr std::uint32_t crcOf8192 = 0x6F8AE152;
constexpr std::uint32_t crcOf10000 = 0xA8A50E01;

} // namespace BootRecords
} // namespace Vantor
