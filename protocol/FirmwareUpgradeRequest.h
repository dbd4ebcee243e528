#pragma once

#include <cstddef>
#include <cstdint>

namespace Vantor {

// Opens a firmware upgrade.
struct __attribute__((packed)) FirmwareUpgradeRequest {
    // The panel expects this word in every request; its meaning is the firmware's.
    static constexpr std::uint16_t expectedWord = 0x3000;

    std::uint8_t reserved0[10]; // 0
    std::uint32_t mainSize;     // bytes of the main MCU's image, 0 when there is none
    std::uint32_t mainCrc;      // CRC-32 of that image
    std::uint16_t word;         // expectedWord
    std::uint16_t reserved1;    // 0
    std::uint32_t servoSize;    // bytes of the servo MCU's image
    std::uint32_t servoCrc;     // CRC-32 of that image
    std::uint32_t checksum;     // PacketPacker::generateChecksum of this record
};

static_assert(sizeof(FirmwareUpgradeRequest) == 34);
static_assert(alignof(FirmwareUpgradeRequest) == 1);
static_assert(offsetof(FirmwareUpgradeRequest, reserved0) == 0);
static_assert(offsetof(FirmwareUpgradeRequest, mainSize) == 10);
static_assert(offsetof(FirmwareUpgradeRequest, mainCrc) == 14);
static_assert(offsetof(FirmwareUpgradeRequest, word) == 18);
static_assert(offsetof(FirmwareUpgradeRequest, reserved1) == 20);
static_assert(offsetof(FirmwareUpgradeRequest, servoSize) == 22);
static_assert(offsetof(FirmwareUpgradeRequest, servoCrc) == 26);
static_assert(offsetof(FirmwareUpgradeRequest, checksum) == 30);

} // namespace Vantor
