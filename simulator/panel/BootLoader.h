#pragma once

#include "protocol/FirmwareData.h"
#include "protocol/FirmwareUpgradeRequest.h"
#include "protocol/PacketType.h"
#include "simulator/panel/BootFault.h"
#include "simulator/panel/BootFaultPlan.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace Vantor {

// What takes a firmware upgrade in a panel: it checks requests and chunks, writes the
// flash memory of the panel's two MCUs and answers each record with a
// FirmwareUpgradeCommand. No I/O; time is what the caller says, and never goes back.
//
// A request opens a session: it announces size and CRC of both images. It is answered
// "send again", since to a host that is "go on", whereas "chunk written" would have it
// skip a chunk. The same request keeps the session and what it has written; another one
// begins a new session. A wrong request is "invalid" and changes nothing.
//
// A chunk may begin where the written part of its image ends, or before that; the chunk
// at address 0 erases the flash first. When the image is complete its CRC is checked and
// the result kept. A chunk that is wrong or leaves a gap is answered "failed, send again"
// and changes nothing. Without a session no chunk is answered: silence is what makes a
// host announce the upgrade again. An image of size 0 leaves its MCU alone.
//
// Records are worked on one after the other and answered in order. What is under way or
// waits when the power goes is lost.
//
// Threads: one at a time. Lifetime: stands alone.
class BootLoader {
public:
    struct Options {
        std::uint32_t mainCapacity = 2U << 20; // bytes of flash
        std::uint32_t servoCapacity = 1U << 20;
        std::chrono::nanoseconds chunkTime = std::chrono::milliseconds(110); // for a chunk that is written
        std::chrono::nanoseconds checkTime = std::chrono::milliseconds(10);  // for all that is not written
        bool refusesWithoutSession = false;                                  // answers such chunks as wrong ones
    };

    enum class State {
        Untouched,  // by any session
        Incomplete, // announced, and `written` of `size` bytes have come
        Verified,   // complete, and its CRC is the announced one
        Mismatched, // complete, and its CRC is another
    };

    // The flash memory of one MCU and what the last session that named it did to it.
    struct Image {
        std::vector<std::uint8_t> bytes; // all that was written since the flash was erased
        State state = State::Untouched;
        std::uint32_t size = 0; // as announced
        std::uint32_t crc = 0;
        std::uint32_t written = 0; // 0: `bytes` is what was there before
    };

    // Outlives the power.
    struct Flash {
        Image main;
        Image servo;
    };

    struct Statistics {
        std::uint64_t records = 0; // all that came, lost ones included
        std::uint64_t requestsAccepted = 0;
        std::uint64_t requestsRefused = 0; // or answered by a fault
        std::uint64_t chunksWritten = 0;
        std::uint64_t chunksRefused = 0; // likewise
        std::uint64_t recordsLost = 0;   // to a fault, or because maxWaiting others waited
        std::uint64_t replies = 0;
    };

    // So many records wait behind the one that is worked on; the host waits for an answer
    // before it goes on, so that more are a flood, and lost.
    static constexpr std::size_t maxWaiting = 16;

    // Whether records of this type are for it.
    static bool isFirmwareRecord(PacketType type);

    // Throws std::invalid_argument when the flash holds more than its capacity.
    BootLoader(const Options& options, Flash flash);

    // A record comes in; one that is not for it has no effect. False when a fault cuts the
    // link at this moment.
    [[nodiscard]] bool take(PacketType type, const std::vector<std::uint8_t>& payload, std::chrono::nanoseconds now);

    // The answers that are due, in order: payloads of type FirmwareUpgradeCommand, of its size.
    std::vector<std::vector<std::uint8_t>> takeReplies(std::chrono::nanoseconds now);

    // When the record that is worked on will be done.
    std::optional<std::chrono::nanoseconds> nextDeadline() const;

    // Finishes what is due and forgets everything else but the flash and the counts.
    void powerOff(std::chrono::nanoseconds now);

    // Throws std::invalid_argument for an offset outside a reply. Of the records that
    // have come already none is met.
    void inject(const BootFault& fault);
    void clearFaults();

    // As of the last take, takeReplies or powerOff.
    const Flash& getFlash() const;
    const Statistics& getStatistics() const;

    // For the panel's next life; leaves nothing.
    Flash takeFlash();

private:
    struct Record {
        PacketType type;
        std::vector<std::uint8_t> payload;
        std::chrono::nanoseconds arrival;
        std::optional<BootFault> fault;

        bool meets(BootFault::Kind kind) const { return fault && fault->kind == kind; }
    };
    struct Work {
        Record record;
        bool good;
        std::chrono::nanoseconds done;
    };
    struct Session {
        std::uint32_t mainSize;
        std::uint32_t mainCrc;
        std::uint32_t servoSize;
        std::uint32_t servoCrc;
    };

    void run(std::chrono::nanoseconds now);
    void begin();
    void finish();
    bool isGoodRequest(const std::vector<std::uint8_t>& payload) const;
    bool isGoodChunk(const std::vector<std::uint8_t>& payload) const;
    void open(const FirmwareUpgradeRequest& request);
    void write(const FirmwareData& chunk);
    void count(const Work& work);
    bool isAnswered(const Work& work) const;
    void reply(const Work& work);

    const Options m_options;
    Flash m_flash;
    std::optional<Session> m_session;
    BootFaultPlan m_faults;
    std::deque<Record> m_waiting;
    std::optional<Work> m_work;
    std::chrono::nanoseconds m_idleSince = std::chrono::nanoseconds::min();
    std::vector<std::vector<std::uint8_t>> m_replies;
    Statistics m_statistics;
};

} // namespace Vantor
