#pragma once

#include "protocol/PacketHeader.h"
#include "protocol/PacketType.h"
#include "protocol/TransLcdBitmap.h"
#include "simulator/panel/BootFault.h"
#include "simulator/panel/BootLoader.h"
#include "simulator/panel/FaultPlan.h"
#include "simulator/panel/PacketLimit.h"
#include "simulator/panel/PanelFault.h"
#include "simulator/panel/PanelOutbox.h"
#include "simulator/panel/PanelScreen.h"
#include "simulator/panel/PanelScript.h"
#include "simulator/panel/SliceDecoder.h"
#include "simulator/panel/WireDecoder.h"
#include "wire/PanelLink.h"
#include "wire/RecordHeader.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Vantor {

// One panel, seen from its side of the wire: descriptors, claims and bulk transfers
// as a kernel would serve them, bytes in, bytes out. It decodes what it receives with
// a decoder of its own, keeps count, answers requests for device information, takes
// firmware upgrades, sends packets on demand, shows on its LCDs what is drawn and reports
// every violation of the wire. No I/O and no thread; time is what the clock says.
//
// Threads: one at a time. Lifetime: owns everything it is given.
class PanelModel {
public:
    // Time since an arbitrary start; never goes back.
    using Clock = std::function<std::chrono::nanoseconds()>;
    // Whoever has the device open; compared only, never followed.
    using Owner = const void*;
    using UrbId = std::uint64_t;

    // Of an LCD that the options do not name.
    static constexpr PanelScreen::Size defaultLcdSize{TransLcdBitmap::width, TransLcdBitmap::height};

    struct Options {
        std::uint16_t vendorId = PanelLink::developmentVendorId;
        std::uint16_t productId = PanelLink::productId;
        std::string description = "Simulated panel"; // at most 80 bytes are announced
        std::uint16_t maxPacketSize = 8192;          // announced in the device information
        std::uint64_t seed = 1;                      // its low half is the device id in the panel's packets
        bool keepRecords = true;                     // false: records are counted and observed, not stored
        // By LCD number.
        std::map<std::uint16_t, PanelScreen::Size> lcdSizes;
        BootLoader::Options bootLoader;
        std::shared_ptr<PanelScript> script; // null: it answers as described above
        // Those of another panel, which arePanelDescriptors approves of; with its strings, whole
        // descriptors by index. Empty: the model's own.
        std::vector<std::uint8_t> descriptors;
        std::map<std::uint8_t, std::vector<std::uint8_t>> strings;
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

    // A slice that has been drawn.
    struct Drawing {
        PacketType type;
        const SliceDecoder::Slice& slice;
        std::size_t bytes; // of its record
        const PanelScreen& screen;
    };

    // Throws std::invalid_argument for an LCD size that is not possible, and for flash
    // memory that does not fit the boot loader's capacity.
    PanelModel(Options options, Clock clock, BootLoader::Flash flash = {});
    ~PanelModel();
    PanelModel(const PanelModel&) = delete;
    PanelModel& operator=(const PanelModel&) = delete;

    // The bus side. Results are 0 or a negative errno, as the kernel's.

    // The device descriptor with the configuration behind it, as the kernel's
    // `descriptors` attribute holds them: high speed, one interface, bulk OUT 0x02 and
    // bulk IN 0x81 of 512 bytes.
    std::vector<std::uint8_t> getDescriptors() const;

    // String descriptor `index`; empty when there is none.
    std::vector<std::uint8_t> getString(std::uint8_t index) const;

    // -EBUSY while another owner has it, -ENOENT for an interface it does not have.
    int claimInterface(Owner owner, unsigned int number);

    // -EINVAL when the owner has not claimed it. The owner's pending transfers complete
    // with -ENOENT, as a kernel kills them.
    int releaseInterface(Owner owner, unsigned int number);

    // Releases what the owner claimed and forgets its transfers, without completions.
    void closeOwner(Owner owner);

    // -ENOENT for endpoint 0 and others that the interface does not have, like the
    // kernel; 0 lifts a sticky stall.
    int clearHalt(std::uint8_t endpoint);
    bool isHalted(std::uint8_t endpoint) const;

    // -ENODEV once unplugged, -EBUSY when another owner holds the interface; an owner
    // that has not claimed it claims it hereby, as a kernel does it. Transfers of one
    // endpoint are answered in order; one that waits holds up those behind it.
    //
    // `endsTransfer`: the bytes end a transfer although they fill whole 512-byte packets
    // (a zero-length packet follows). Without it such bytes are taken for the beginning
    // of a transfer if they are a multiple of 16 KiB, the size in which hosts split
    // transfers, and else for one whose end was not marked, which is a violation. No
    // bytes at all end a transfer, too.
    //
    // PanelOutbox says how packets are cut into reads.
    int submitOut(Owner owner, UrbId urb, std::vector<std::uint8_t> data, bool endsTransfer);
    int submitIn(Owner owner, UrbId urb, std::uint32_t capacity);

    // The host goes no further with an OUT transfer whose end it has not submitted, since
    // a part of it failed: what it submits next begins another.
    void breakOffOut();

    // Completes the transfer with -ENOENT; false when it is not pending.
    bool cancel(UrbId urb);

    // Completes every pending transfer with -ESHUTDOWN; submissions fail from now on.
    void unplug();

    // Also when a fault of the boot loader did it: an adapter looks after everything that
    // it does here, and takes the panel off its bus.
    bool isUnplugged() const;

    // Whether a read of the host waits for something to read.
    bool isBeingRead() const;

    // What has completed by now, in order.
    std::vector<Completion> takeCompletions();

    // When time alone will next complete something, or have something to read.
    std::optional<std::chrono::nanoseconds> nextDeadline() const;

    // The panel side.

    // Queues one packet with one record for the host. Packets that wait together go out
    // in one transfer as far as they fit. Throws std::length_error for a payload of more
    // than maxPayload bytes and std::invalid_argument for a type beyond 0 to 255, which
    // no packet can carry. After unplug nothing is queued.
    static constexpr std::size_t maxPayload = 65535 - sizeof(PacketHeader) - sizeof(RecordHeader);
    void emit(PacketType type, const std::vector<std::uint8_t>& payload);

    // Queues bytes as they are, for what a well-behaved panel would never send.
    void emitRaw(std::vector<std::uint8_t> bytes);

    // FaultPlan says which fault meets a transfer. On the OUT side that is all of a
    // transfer, also one in several URBs; on the IN side it is one read. A fault that
    // answers (Stall, Status) or holds (NoAnswer) meets a read that is already pending;
    // Short and Delay wait until there is something to read. What an OUT transfer loses
    // to a fault or a cancel is no violation; records of a packet cut that way are lost.
    void inject(const PanelFault& fault);

    // BootFaultPlan says which fault meets a firmware record.
    void inject(const BootFault& fault);

    // Both kinds. Transfers that a fault already holds stay held.
    void clearFaults();

    // Called for every decoded record, before it is answered; a slice is drawn by then.
    // It may emit and inject.
    void setRecordObserver(std::function<void(const Record&)> observer);

    // Called for every slice that is drawn, before its record is observed. Must not come back in.
    void setDrawObserver(std::function<void(const Drawing&)> observer);

    // Called for every record of the packets that one read of the host has got whole. Must not
    // come back in.
    void setGivenObserver(std::function<void(PacketType type, const std::vector<std::uint8_t>& payload)> observer);

    const Options& getOptions() const { return m_options; }

    // Firmware records are records like any others, and go to the boot loader after that.
    // Its flash and counts outlive unplug. takeFlash, for the panel's next life, leaves
    // nothing.
    const BootLoader& getBootLoader() const;
    BootLoader::Flash takeFlash();

    const std::vector<Record>& getRecords() const;
    const Statistics& getStatistics() const;

    // The LCDs drawn on, by number; all white before that. A slice that contradicts
    // itself is a violation and draws nothing. One that reaches past the LCD is clipped
    // and is none, even when nothing of it is left. The screens outlive unplug.
    //
    // A panel has at most maxScreens LCDs, so that a host that names all 65,536 does not
    // take gigabytes: slices for further ones are violations.
    static constexpr std::size_t maxScreens = 64;
    const std::map<std::uint16_t, PanelScreen>& getScreens() const;

    // One line for each thing that the host must not do on the wire, in order; PacketLimit
    // says how large its packets may be. The list ends after maxViolations lines with one that says so.
    static constexpr std::size_t maxViolations = 1000;
    const std::vector<std::string>& getViolations() const;

private:
    struct OutUrb {
        Owner owner;
        UrbId id;
        std::vector<std::uint8_t> data;
        bool ends;
        bool marked; // false: it ends a transfer, but the host did not say so
        std::uint64_t transfer;
        std::uint32_t packetLimit; // when it was submitted
    };
    struct InUrb {
        Owner owner;
        UrbId id;
        std::uint32_t capacity;
        std::optional<PanelFault> fault;
        std::chrono::nanoseconds due{0};
    };
    // The OUT transfer whose URBs are at the head of the queue.
    struct OutTransfer {
        std::uint64_t number = 0; // from 1
        std::uint64_t taken = 0;  // bytes
        bool lost = false;        // in part: there is nothing left to decode
        std::optional<PanelFault> fault;
        std::chrono::nanoseconds due{0};
    };
    struct OwnedCompletion {
        Owner owner;
        Completion completion;
    };

    int claimForSubmit(Owner owner);
    void abandonOut(const OutUrb& urb);
    void cancelAll(Owner owner, int status);
    void complete(Owner owner, UrbId urb, int status, std::vector<std::uint8_t> data, std::uint32_t length);

    std::optional<std::chrono::nanoseconds> outDue() const; // of what a delay holds at the head
    std::optional<std::chrono::nanoseconds> inDue() const;
    void serve();
    bool serveOut();
    void beginOutTransfer(const OutUrb& urb);
    bool isOutHeld() const;
    void answerOut(const OutUrb& urb);
    void takeBytes(const OutUrb& urb, std::size_t size);
    bool serveIn();
    bool meetInFault(InUrb& urb);
    bool serveBootLoader();
    bool serveScript();
    void perform(PanelScript::Answer answer);
    bool isAnswerable() const;
    void give(const InUrb& urb, int status, std::vector<std::uint8_t> bytes, std::uint32_t packets);
    void lookAtGiven(const std::vector<std::uint8_t>& given);

    void handle(WireDecoder::Result result);
    void handleRecord(WireDecoder::Record record);
    void drawSlice(const WireDecoder::Record& record);
    PanelScreen* findScreen(std::uint16_t lcd);
    void answerRecord(PacketType type, const std::vector<std::uint8_t>& payload);
    void answerDeviceInfoRequest(const std::vector<std::uint8_t>& payload);
    void reportViolation(const std::string& what);

    const Options m_options;
    const Clock m_clock;
    std::optional<Owner> m_claimedBy;
    bool m_unplugged = false;

    std::deque<OutUrb> m_outUrbs;
    std::deque<InUrb> m_inUrbs;
    std::uint64_t m_submittedTransfer = 1; // the OUT transfer that the next URB belongs to
    std::set<std::uint64_t> m_lostTransfers;
    OutTransfer m_outTransfer;
    FaultPlan m_outFaults;
    FaultPlan m_inFaults;
    std::vector<OwnedCompletion> m_completions;
    bool m_serving = false; // an observer may come back in

    PacketLimit m_packetLimit;
    WireDecoder m_decoder;
    PanelOutbox m_outbox;
    BootLoader m_bootLoader;
    std::function<void(const Record&)> m_observer;
    std::function<void(const Drawing&)> m_drawObserver;
    std::function<void(PacketType type, const std::vector<std::uint8_t>& payload)> m_givenObserver;
    std::vector<Record> m_records;
    Statistics m_statistics;
    std::map<std::uint16_t, PanelScreen> m_screens;
    std::vector<std::string> m_violations;
};

} // namespace Vantor
