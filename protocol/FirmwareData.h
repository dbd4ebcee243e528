#pragma once

#include <cstddef>
#include <cstdint>

namespace Vantor {

// One chunk of a firmware image.
struct __attribute__((packed)) FirmwareData {
    // Values of `board`.
    enum Board : std::uint8_t {
        MainMcu = 1,
        ServoMcu = 0x0F,
    };
    static constexpr std::uint32_t chunkSize = 4096;

    std::uint8_t board;
    std::uint32_t address;        // byte offset of the chunk in its image
    std::uint32_t length;         // valid bytes in data, 0 to chunkSize
    std::uint8_t data[chunkSize]; // bytes past length are whatever the record held before
    std::uint32_t checksum;       // PacketPacker::generateChecksum of this record
};

static_assert(sizeof(FirmwareData) == 4109);
static_assert(alignof(FirmwareData) == 1);
static_assert(offsetof(FirmwareData, board) == 0);
static_assert(offsetof(FirmwareData, address) == 1);
static_assert(offsetof(FirmwareData, length) == 5);
static_assert(offsetof(FirmwareData, data) == 9);
static_assert(offsetof(FirmwareData, checksum) == 4105);

} // namespace Vantor
