#pragma once

#include <cstddef>
#include <cstdint>

namespace Vantor {

// A panel's reply to a firmware record (type 40).
struct __attribute__((packed)) FirmwareUpgradeCommand {
    // Values of `command`; the library ignores any other.
    enum Command : std::uint8_t {
        Invalid = 0,
        ChunkWritten = 1,
        SendAgain = 2,
        WriteFailed = 0xF0,
        EraseFailed = 0xF1,
        FailedSendAgain = 0xF2,
    };

    std::uint8_t command;
    std::uint8_t board;     // as in FirmwareData
    std::uint32_t address;  // image offset of the chunk concerned
    std::uint32_t length;   // bytes written
    std::uint32_t checksum; // of the chunk concerned
};

static_assert(sizeof(FirmwareUpgradeCommand) == 14);
static_assert(alignof(FirmwareUpgradeCommand) == 1);
static_assert(offsetof(FirmwareUpgradeCommand, command) == 0);
static_assert(offsetof(FirmwareUpgradeCommand, board) == 1);
static_assert(offsetof(FirmwareUpgradeCommand, address) == 2);
static_assert(offsetof(FirmwareUpgradeCommand, length) == 6);
static_assert(offsetof(FirmwareUpgradeCommand, checksum) == 10);

} // namespace Vantor
