#include "protocol/PackedPacketParser.h"

#include "protocol/PacketHeader.h"
#include "wire/RecordHeader.h"

#include <algorithm>
#include <cstring>

namespace Vantor {

namespace {

void deliver(PackedPacketParser::Observer& observer, unsigned short deviceId, PacketType type,
             const unsigned char* payload, unsigned int size)
{
    if (size >= sizeof(DataPacketUnion)) {
        observer.handleParsedPacket(deviceId, type, *reinterpret_cast<const DataPacketUnion*>(payload), size);
        return;
    }
    DataPacketUnion data{};
    std::memcpy(&data, payload, size);
    observer.handleParsedPacket(deviceId, type, data, size);
}

// Walks the records of one packet; false when one reaches past its end.
bool deliverRecords(PackedPacketParser::Observer& observer, unsigned short deviceId, const unsigned char* packet,
                    unsigned int length)
{
    unsigned int offset = sizeof(PacketHeader);
    while (offset < length) {
        RecordHeader record{};
        if (length - offset < sizeof record)
            return false;
        std::memcpy(&record, packet + offset, sizeof record);
        offset += sizeof record;
        if (record.length > length - offset)
            return false;
        deliver(observer, deviceId, static_cast<PacketType>(record.type), packet + offset, record.length);
        offset += record.length;
    }
    return true;
}

} // namespace

PackedPacketParser::PackedPacketParser(Observer* observer) : m_observer(observer), m_rejectedCount(0) {}

PackedPacketParser::~PackedPacketParser() = default;

void PackedPacketParser::parse(unsigned char* data, unsigned int size)
{
    if (m_observer == nullptr || data == nullptr)
        return;

    unsigned int offset = 0;
    unsigned short deviceId = 0;
    while (offset < size) {
        PacketHeader header{};
        const unsigned int rest = size - offset;
        if (rest < sizeof header) {
            ++m_rejectedCount;
            return;
        }
        std::memcpy(&header, data + offset, sizeof header);
        if (offset == 0)
            deviceId = static_cast<unsigned short>(header.deviceId);
        if (header.length < sizeof header || header.length > rest ||
            !deliverRecords(*m_observer, deviceId, data + offset, header.length)) {
            ++m_rejectedCount;
            return;
        }
        offset += header.length;
    }
}

std::uint32_t PackedPacketParser::getRejectedCount() const
{
    return m_rejectedCount;
}

} // namespace Vantor
