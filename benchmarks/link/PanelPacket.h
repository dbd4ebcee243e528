#pragma once

#include "protocol/DeviceInformation.h"
#include "protocol/PacketHeader.h"
#include "protocol/PacketType.h"
#include "wire/RecordHeader.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace Vantor {

// Packets as the bare loop makes and reads them: no more than the wire asks for.
namespace PanelPacket {

constexpr unsigned int limit = 8192; // what the simulated panel announces
constexpr unsigned int overhead = sizeof(PacketHeader) + sizeof(RecordHeader);

// Of no meaning to the library or the panel, the first of high priority.
constexpr auto urgentType = static_cast<PacketType>(6);
constexpr auto type = static_cast<PacketType>(20);

// So many records of the same payload; returns the packet's length.
inline int write(unsigned char* packet, PacketType recordType, const void* payload, unsigned int size,
                 unsigned int records)
{
    const RecordHeader record{static_cast<std::uint8_t>(recordType), static_cast<std::uint16_t>(size)};
    unsigned char* at = packet + sizeof(PacketHeader);
    for (unsigned int i = 0; i < records; ++i) {
        std::memcpy(at, &record, sizeof record);
        std::memcpy(at + sizeof record, payload, size);
        at += sizeof record + size;
    }
    const auto length = static_cast<std::uint16_t>(at - packet);
    const PacketHeader header{length, static_cast<std::uint16_t>(records), 0};
    std::memcpy(packet, &header, sizeof header);
    return length;
}

inline std::vector<unsigned char> make(PacketType recordType, const void* payload, unsigned int size,
                                       unsigned int records)
{
    std::vector<unsigned char> packet(sizeof(PacketHeader) + records * (sizeof(RecordHeader) + size));
    write(packet.data(), recordType, payload, size, records);
    return packet;
}

inline std::vector<unsigned char> makeDeviceInformation()
{
    DeviceInformation information{};
    information.maxPacketSize = limit;
    return make(PacketType::DeviceInformation, &information, sizeof information, 1);
}

// The records in what was received, each of which is looked at. A read may bring several
// packets.
inline unsigned int countRecords(const unsigned char* bytes, std::size_t size)
{
    unsigned int found = 0;
    for (const unsigned char* const end = bytes + size; end - bytes > static_cast<std::ptrdiff_t>(overhead);) {
        PacketHeader header{};
        std::memcpy(&header, bytes, sizeof header);
        bytes += sizeof header;
        for (unsigned int i = 0; i < header.count && end - bytes >= 3; ++i, ++found) {
            RecordHeader record{};
            std::memcpy(&record, bytes, sizeof record);
            bytes += sizeof record + record.length;
        }
    }
    return found;
}

} // namespace PanelPacket

} // namespace Vantor
