#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Vantor {

// One frame of a capture: what usbmon says of a URB when a host submits it, when it is
// complete, or when it could not be submitted. The kernel's layout of it is explained in
// Documentation/usb/usbmon.rst. One that was read has any value in any member.
struct CapturedUrb {
    enum class Event : std::uint8_t {
        Submit = 'S',
        Complete = 'C',
        Error = 'E', // could not be submitted
    };

    enum class Transfer : std::uint8_t {
        Isochronous = 0,
        Interrupt = 1,
        Control = 2,
        Bulk = 3,
    };

    // What is wrong with a frame that was read.
    enum class Flaw {
        None,
        NoHeader, // it is shorter than the header: nothing of it but `time` is known
        Snapped,  // whoever took the capture cut it off: `data` is less than there was
        TooShort, // it holds less than `presentLength` without having been cut off
    };

    static constexpr std::size_t setupSize = 8;
    static constexpr std::uint8_t inBit = 0x80; // of `endpoint`

    // Of `flags`.
    static constexpr std::uint32_t shortNotOk = 0x0001;
    static constexpr std::uint32_t zeroPacket = 0x0040;
    static constexpr std::uint32_t directionIn = 0x0200;

    // Values of `setupFlag` and `dataFlag`. Any but `follows` says why there is none.
    static constexpr char follows = 0;
    static constexpr char noSetup = '-';
    static constexpr char noDataIn = '<';  // a submitted read has none yet
    static constexpr char noDataOut = '>'; // a completed write has none any more

    static constexpr std::int32_t inProgress = -115; // the status of what is submitted

    bool isIn() const { return (endpoint & inBit) != 0; }

    std::uint64_t id = 0; // the same for submission and completion; may come again afterwards
    Event event = Event::Submit;
    Transfer transfer = Transfer::Bulk;
    std::uint8_t endpoint = 0; // with its direction
    std::uint8_t device = 0;
    std::uint16_t bus = 0;
    char setupFlag = noSetup;
    char dataFlag = follows;
    std::int32_t status = 0;         // 0 or a negative errno of Linux, whatever machine reads it
    std::uint32_t length = 0;        // submitted: asked for; complete: transferred
    std::uint32_t presentLength = 0; // of the data that the host captured
    std::array<std::uint8_t, setupSize> setup{};
    std::int32_t interval = 0;
    std::uint32_t flags = 0;
    std::vector<std::uint8_t> data;
    std::chrono::nanoseconds time{0}; // since 1970
    Flaw flaw = Flaw::None;
    std::size_t frameSize = 0; // of one that was read: the bytes in the file
};

} // namespace Vantor
