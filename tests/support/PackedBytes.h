#pragma once

#include "protocol/PacketPacker.h"
#include "tests/support/Bytes.h"

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <stdexcept>
#include <vector>

namespace Vantor {

// One record as it stands in a packet.
struct PackedRecord {
    int type;
    Bytes payload;

    bool operator==(const PackedRecord& other) const { return type == other.type && payload == other.payload; }
};

inline std::ostream& operator<<(std::ostream& out, const PackedRecord& record)
{
    out << "type " << record.type << " {";
    for (const std::uint8_t byte : record.payload)
        out << ' ' << static_cast<int>(byte);
    return out << " }";
}

// The packet that is being built, header included.
inline Bytes packetOf(const PacketPacker& packer)
{
    return Bytes(packer.getPacket(), packer.getPacket() + packer.getPacketSize());
}

// Splits the packet by its framing alone: for tests that are about which records
// went in. Those that are about the framing compare packetOf byte by byte.
inline std::vector<PackedRecord> recordsOf(const PacketPacker& packer)
{
    const Bytes packet = packetOf(packer);
    std::vector<PackedRecord> records;
    std::size_t at = 8;
    while (at < packet.size()) {
        const std::size_t length = packet.at(at + 1) + packet.at(at + 2) * std::size_t{256};
        if (at + 3 + length > packet.size())
            throw std::runtime_error("a record reaches past its packet");
        const auto begin = packet.begin() + static_cast<std::ptrdiff_t>(at + 3);
        records.push_back({packet[at], Bytes(begin, begin + static_cast<std::ptrdiff_t>(length))});
        at += 3 + length;
    }
    return records;
}

constexpr PacketType typeOf(int value)
{
    return static_cast<PacketType>(value);
}

} // namespace Vantor
