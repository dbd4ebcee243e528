#pragma once

#include "tests/support/Bytes.h"

#include <cstddef>
#include <cstdint>
#include <limits>

namespace Vantor {

// A capture file byte by byte, also such as no kernel would write: pcap, link type 220, as
// Documentation/usb/usbmon.rst and the pcap format have it. The operations return the number
// of the frame that carries the data.
class HandmadeCapture {
public:
    static constexpr std::size_t whole = std::numeric_limits<std::size_t>::max();

    HandmadeCapture();

    // Device and configuration descriptor are read.
    void enumerate(std::uint8_t device, std::uint16_t vendor = 0xDEAD, std::uint16_t product = 0xBEEF);

    // A bulk URB each, submitted and completed. Of the data the capture keeps `kept` bytes.
    unsigned int out(std::uint8_t device, const Bytes& data, std::size_t kept = whole);
    unsigned int in(std::uint8_t device, const Bytes& data, std::size_t kept = whole);

    // In URBs of 16 KiB, as without scatter-gather: the number of the last one.
    unsigned int outInParts(std::uint8_t device, const Bytes& data);
    unsigned int inInParts(std::uint8_t device, const Bytes& data);

    // What comes now is captured so much later.
    void wait(std::uint32_t milliseconds) { m_milliseconds += milliseconds; }

    const Bytes& getFile() const { return m_file; }

private:
    struct Urb {
        char event;
        std::uint8_t transfer;
        std::uint8_t endpoint;
        std::uint8_t device;
    };

    void control(std::uint8_t device, const Bytes& setup, const Bytes& answer);
    unsigned int add(const Urb& urb, const Bytes& setup, const Bytes& data, std::size_t kept = whole);

    Bytes m_file;
    std::uint32_t m_milliseconds = 0;
    std::uint32_t m_urb = 0;
    unsigned int m_frames = 0;
};

} // namespace Vantor
