#pragma once

#include "protocol/PacketType.h"
#include "protocol/PanelLink.h"
#include "simulator/PanelFault.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Vantor {

// One panel, seen from its side of the wire: descriptors, claims and bulk transfers
// as a kernel would serve them, bytes in, bytes out. It decodes what it receives with
// a decoder of its own, keeps count, answers requests for device information, sends
// packets on demand and reports every violation of the wire. No I/O and no thread;
// time is what the clock says.
//
// Threads: one at a time. Lifetime: owns everything it is given.
class PanelModel {
public:
    // Time since an arbitrary start; never goes back.
    using Clock = std::function<std::chrono::nanoseconds()>;
    // Whoever has the device open; compared only, never followed.
    using Owner = const void*;
    using UrbId = std::uint64_t;

    struct Options {
        std::uint16_t vendorId = PanelLink::developmentVendorId;
        std::uint16_t productId = PanelLink::productId;
        std::string description = "Simulated panel"; // at most 80 bytes are announced
        std::uint16_t maxPacketSize = 8192;          // announced in the device information
        std::uint64_t seed = 1;
        bool keepRecords = true; // false: records are counted and observed, not stored
    };

    // A record as it came in.
    struct Record {
        PacketType type;
        std::vector<std::uint8_t> payload;
        std::chrono::nanoseconds time;
    };

    struct Completion {
        UrbId urb;
        int status;                     // 0 or a negative errno
        std::uint32_t actualLength;     // bytes taken or given
        std::vector<std::uint8_t> data; // of a read, actualLength bytes
    };

    struct Statistics {
        std::uint64_t bytesReceived = 0;
        std::uint64_t packetsReceived = 0;
        std::uint64_t recordsReceived = 0;
        std::uint64_t bytesSent = 0;
        std::uint64_t packetsSent = 0;
        std::map<PacketType, std::uint64_t> recordsByType;
    };

    PanelModel(Options options, Clock clock);
    ~PanelModel();
    PanelModel(const PanelModel&) = delete;
    PanelModel& operator=(const PanelModel&) = delete;

    // The bus side. Results are 0 or a negative errno, as the kernel's.

    // The device descriptor with the configuration behind it, as the kernel's
    // `descriptors` attribute holds them: high speed, one interface, bulk OUT 0x02 and
    // bulk IN 0x81 of 512 bytes.
    std::vector<std::uint8_t> getDescriptors() const;

    // -EBUSY while another owner has it, -ENOENT for an interface it does not have.
    int claimInterface(Owner owner, unsigned int number);
    int releaseInterface(Owner owner, unsigned int number);

    // Releases what the owner claimed and forgets its transfers, without completions.
    void closeOwner(Owner owner);

    // -ENOENT for endpoint 0 and others that the interface does not have, like the
    // kernel; 0 lifts a sticky stall.
    int clearHalt(std::uint8_t endpoint);

    // -ENODEV once unplugged, -EBUSY when another owner holds the interface. `endsTransfer`: the bytes end a
    // transfer although they fill whole 512-byte packets (a zero-length packet
    // follows).
    int submitOut(Owner owner, UrbId urb, std::vector<std::uint8_t> data, bool endsTransfer);
    int submitIn(Owner owner, UrbId urb, std::uint32_t capacity);

    // Completes the transfer with -ENOENT; false when it is not pending.
    bool cancel(UrbId urb);

    // Completes every pending transfer with -ESHUTDOWN; submissions fail from now on.
    void unplug();

    // What has completed by now, in order.
    std::vector<Completion> takeCompletions();

    // When time alone will next complete something.
    std::optional<std::chrono::nanoseconds> nextDeadline() const;

    // The panel side.

    // Queues one packet with one record for the host. Packets that wait together go out
    // in one transfer as far as they fit.
    void emit(PacketType type, const std::vector<std::uint8_t>& payload);

    // Queues bytes as they are, for what a well-behaved panel would never send.
    void emitRaw(std::vector<std::uint8_t> bytes);

    void inject(const PanelFault& fault);
    void clearFaults();

    // Called for every decoded record, before it is answered.
    void setRecordObserver(std::function<void(const Record&)> observer);

    const std::vector<Record>& getRecords() const;
    const Statistics& getStatistics() const;

    // One line for each thing that the host must not do on the wire, in order.
    const std::vector<std::string>& getViolations() const;
};

} // namespace Vantor
