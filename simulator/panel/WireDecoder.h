#pragma once

#include "protocol/PacketHeader.h"
#include "protocol/PacketType.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Vantor {

// Takes apart what a host sends: a transfer is one whole packet, a PacketHeader and as
// many records as it counts; an LCD slice of run-length words stands first if there is
// one. Written from the wire's description alone, so that it can judge whoever writes
// packets. What breaks a rule is decoded all the same, as far as it can be.
//
// Threads: one at a time. Lifetime: stands alone; results own their bytes.
class WireDecoder {
public:
    struct Record {
        PacketType type;
        std::vector<std::uint8_t> payload;
    };

    // A packet that arrived whole; of a malformed one, the records before the defect.
    struct Packet {
        PacketHeader header;
        std::vector<Record> records;
    };

    struct Result {
        std::vector<Packet> packets;
        std::vector<std::string> violations; // "byte 8: …", counted from the transfer's start
    };

    // Packets of more than packetLimit bytes are violations.
    explicit WireDecoder(std::uint32_t packetLimit);
    void setPacketLimit(std::uint32_t packetLimit);

    // One whole transfer.
    static Result decode(const std::vector<std::uint8_t>& transfer, std::uint32_t packetLimit);

    // The next bytes of the transfer: what they complete. Keeps less than one packet.
    Result feed(const std::uint8_t* data, std::size_t size);

    // The transfer ends here: whatever is left over is a violation. The next bytes
    // begin another transfer.
    Result endTransfer();

    // As above for a transfer known to be cut short: an incomplete packet is dropped
    // without a word.
    void dropTransfer();

private:
    bool decodeNextPacket(std::size_t& position, Result& result);
    void judgeHeader(const PacketHeader& header, std::uint64_t offset, Result& result) const;
    void decodeRecords(const std::uint8_t* packet, std::uint64_t offset, Packet& decoded, Result& result) const;

    std::uint32_t m_packetLimit;
    std::vector<std::uint8_t> m_pending; // bytes of a packet not yet whole
    std::uint64_t m_offset = 0;          // of m_pending in the transfer
    bool m_lost = false;                 // no packet boundary is known any more
};

} // namespace Vantor
