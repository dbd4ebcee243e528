#pragma once

#include "libMorvaneHostUsb/UsbDevice.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ostream>

namespace Vantor::Test {

// Everything that an upgrade keeps in a device, so that a test can say after each step
// what has changed and that nothing else has.
struct FirmwareState {
    // Of m_firmwareState.
    static constexpr std::uint32_t idle = 0;
    static constexpr std::uint32_t announcing = 1;
    static constexpr std::uint32_t sendingMain = 2;
    static constexpr std::uint32_t sendingServo = 3;
    static constexpr std::uint32_t finishing = 4;

    std::uint32_t state = idle;
    std::size_t mainSize = 0;
    std::size_t servoSize = 0;
    std::uint32_t mainOffset = 0;
    std::uint32_t servoOffset = 0;
    std::uint32_t mainCrc = 0;
    std::uint32_t servoCrc = 0;
    double timeout = 0.3;                           // seconds
    std::chrono::system_clock::time_point sentAt{}; // the epoch until something is sent
    std::uint32_t lastSentOffset = 0;
    std::uint32_t lastAckAddress = 0;
    unsigned int resends = 0;
    unsigned int retries = 0;
    unsigned int duplicates = 0;
    // The chunk last built.
    unsigned int board = 0;
    std::uint32_t address = 0;
    std::uint32_t length = 0;
    bool hasCallback = false;

    static FirmwareState of(const UsbDevice& device);
};

bool operator==(const FirmwareState& left, const FirmwareState& right);
std::ostream& operator<<(std::ostream& out, const FirmwareState& state);

} // namespace Vantor::Test
