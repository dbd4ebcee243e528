#pragma once

#include "panelctl/flash/FirmwareImage.h"
#include "protocol/FirmwareData.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace Vantor {

// What one upgrade writes: the main MCU's image, then the servo MCU's; at least one.
struct FirmwareImages {
    // How far `bytes` of both together reach.
    struct Position {
        FirmwareData::Board board;
        std::uint32_t offset;
        std::uint32_t size; // of that image
    };

    std::optional<FirmwareImage> main;
    std::optional<FirmwareImage> servo;

    std::uint32_t getTotal() const;
    std::uint32_t getChunks() const;

    // Where the next byte goes once `bytes` are written.
    Position locate(std::uint32_t bytes) const;

    // "8192 of 12000 bytes of the main image"
    std::string describePosition(std::uint32_t bytes) const;

    // The library's pauses that are still to come once `bytes` are written: at the end of
    // each image 0.7 s from the sending of its last chunk, part of which that chunk takes.
    std::chrono::milliseconds estimatePauses(std::uint32_t bytes) const;

    // The usual time from start to end: a panel confirms a chunk in some 110 ms, and the
    // first goes out 0.1 s after the request.
    std::chrono::seconds estimateTime() const;
};

// "main" or "servo"
const char* nameOf(FirmwareData::Board board);

} // namespace Vantor
