#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace Vantor {

// Transfers of one direction that did not come back as they should. What is still under way
// when the manager lets go of a device is not counted, here nor as sent or received.
struct TransferFailures {
    std::uint64_t timedOut = 0;   // two seconds, inside libusb
    std::uint64_t stalled = 0;    // the panel refused
    std::uint64_t overflowed = 0; // more than the buffer takes
    std::uint64_t failed = 0;     // LIBUSB_TRANSFER_ERROR, or a status that libusb has no name for
    std::uint64_t cancelled = 0;  // by a watchdog, or as the device died
    std::uint64_t gone = 0;       // LIBUSB_TRANSFER_NO_DEVICE
    std::uint64_t refused = 0;    // not taken by libusb in the first place
    std::uint64_t watchdogs = 0;  // given up after five seconds: each is cancelled, and may come back late
    std::uint64_t late = 0;       // came back whole, but after that: a send is sent again, a read is lost
    std::uint64_t lostBytes = 0;  // had crossed the link in transfers that ended in one of these ways
};

// What goes to the panel.
struct SendStatistics {
    std::uint64_t packets = 0;          // taken whole
    std::uint64_t bytes = 0;            // taken, as UsbDevice::getSentData, which wraps
    std::uint64_t records = 0;          // in the packets taken whole, slices included
    std::uint64_t cutPackets = 0;       // taken in part; they are not sent again
    std::uint64_t cutRecords = 0;       // in those
    std::uint64_t emptySends = 0;       // completed without a byte taken; they are sent again
    std::uint64_t supersededValues = 0; // keyed: a later value took the place of one that waited
    std::uint64_t duplicates = 0;       // keyed: dropped, as the same value waited
    std::uint64_t slices = 0;           // of pictures, in the packets taken whole
    std::uint64_t pictureBytes = 0;     // in those slices, without their headers
    std::uint64_t pictures = 0;         // of which the last slice was in such a packet
    std::uint64_t coveredPictures = 0;  // removed unsent, or in the middle, for one that covers them
    TransferFailures failures;
};

// What comes from the panel.
struct ReceiveStatistics {
    std::uint64_t buffers = 0; // reads that brought something
    std::uint64_t bytes = 0;   // in them, as UsbDevice::getReceivedData, which wraps
    std::uint64_t emptyReads = 0;
    std::uint64_t packets = 0;          // well formed, in buffers that were parsed
    std::uint64_t records = 0;          // handed on by the parser
    std::uint64_t malformedPackets = 0; // with a length that can't be; what follows in the buffer is lost with it
    std::uint64_t refusedRecords = 0;   // not handed on by the parser in packets that are well formed, nor what
                                        // follows in the buffer: counted once a buffer
    std::uint64_t unparsedBuffers = 0;  // 8 bytes or less, or there was no observer
    TransferFailures failures;
};

// Something that waits to be sent.
struct WaitingStatistics {
    std::uint64_t now = 0;
    std::uint64_t most = 0; // at one time
};

// One panel, from its arrival to now. Counts only grow, but for `now`.
//
// A copy, of one instant: what one event changes, such as packets, bytes and records, has
// changed together. Records in the packet under way are neither waiting nor sent.
struct DeviceStatistics {
    SendStatistics sent;
    ReceiveStatistics received;

    WaitingStatistics highPriorityRecords;
    WaitingStatistics normalRecords;
    WaitingStatistics pictures; // the one being sent in slices included

    // Of all upgrades: what the library's "Finished" line counts, without being set to 0.
    std::uint64_t upgradeResends = 0; // the first chunk of a device counts as one
    std::uint64_t upgradeDuplicates = 0;

    // Records in packets taken whole, without slices, by the time from their adding until
    // the panel had taken them. Place 0: less than a microsecond; place n: from 2^(n-1) to
    // 2^n microseconds; the last one takes all that is longer. A keyed value that has
    // superseded another has waited since the first. The library does not look at the
    // clock for each record: a time may be too long by what a packet takes, or by some
    // 60 records' adding where that is less; and for keyed records of a type of which only a part
    // went into a packet the times are those of the oldest.
    static constexpr std::size_t timePlaces = 36;
    std::array<std::uint64_t, timePlaces> timesToTaken{};
};

} // namespace Vantor
