#include "protocol/PackedPacketParser.h"

#include "protocol/PacketHeader.h"
#include "wire/RecordHeader.h"

#include <algorithm>
#include <cstring>

namespace Vantor {

namespace {

constexpr unsigned int unionSize = sizeof(DataPacketUnion);

// Room for a payload shorter than the union. It is put directly before the zeros that have
// to follow it, so that these are written once a buffer and not once a record.
class ShortPayload {
public:
    explicit ShortPayload(const unsigned char* buffer) : m_buffer(buffer)
    {
        // As a copy: to clear so many bytes gcc uses `rep stos`, which takes as long as a record.
        static constexpr DataPacketUnion zeros{};
        std::memcpy(m_bytes + unionSize, &zeros, sizeof zeros);
    }

    const DataPacketUnion& copyOf(const unsigned char* payload, unsigned int size)
    {
        unsigned char* const copy = m_bytes + unionSize - size;
        // Of a constant size, with what stands in front of the payload: a copy of `size`
        // bytes is a `rep movs`.
        if (payload - m_buffer + size >= unionSize)
            std::memcpy(m_bytes, payload + size - unionSize, unionSize);
        else
            std::memcpy(copy, payload, size);
        return *reinterpret_cast<const DataPacketUnion*>(copy);
    }

private:
    const unsigned char* m_buffer;
    unsigned char m_bytes[2 * unionSize];
};

// Walks the records of one packet; false when one reaches past its end.
bool deliverRecords(PackedPacketParser::Observer& observer, unsigned short deviceId, const unsigned char* packet,
                    unsigned int length, ShortPayload& shortPayload)
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
        const unsigned char* const payload = packet + offset;
        const DataPacketUnion& data = record.length < unionSize ? shortPayload.copyOf(payload, record.length)
                                                                : *reinterpret_cast<const DataPacketUnion*>(payload);
        observer.handleParsedPacket(deviceId, static_cast<PacketType>(record.type), data, record.length);
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

    ShortPayload shortPayload(data);
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
            !deliverRecords(*m_observer, deviceId, data + offset, header.length, shortPayload)) {
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
