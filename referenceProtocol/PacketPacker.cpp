#include "protocol/PacketPacker.h"

#include "referenceProtocol/WireFormat.h"
#include "wire/RecordHeader.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>

#include <zlib.h>

namespace Vantor {

namespace {

constexpr unsigned int sizeLimit = std::numeric_limits<std::uint16_t>::max();

// A slice writer may pass the limit by its three bytes of record framing; the
// slack keeps that inside the buffer.
constexpr std::size_t bufferSize = 65536 + 64;

static_assert(std::is_trivially_copyable_v<PacketHeader>);

template <typename Record> std::uint32_t sumOfPrecedingBytes(const Record& record)
{
    unsigned char bytes[offsetof(Record, checksum)];
    std::memcpy(bytes, &record, sizeof bytes);
    std::uint32_t sum = 0;
    for (const unsigned char byte : bytes)
        sum += byte;
    return sum;
}

} // namespace

PacketPacker::PacketPacker(const unsigned int& maxPacketSize)
    : m_packet(new unsigned char[bufferSize]()), m_writePosition(sizeof(PacketHeader)),
      m_maxPacketSize(static_cast<std::uint16_t>(std::min(maxPacketSize, sizeLimit))), m_header{}
{
    PacketPacker::clearData();
}

PacketPacker::~PacketPacker()
{
    delete[] m_packet;
}

void PacketPacker::clearData()
{
    m_writePosition = sizeof(PacketHeader);
    m_header = PacketHeader{sizeof(PacketHeader), 0, 0};
    std::memcpy(m_packet, &m_header, sizeof m_header);
}

std::size_t PacketPacker::addStructData(const void* data, const unsigned int& size, const PacketType& type)
{
    if (size > sizeLimit || (data == nullptr && size != 0))
        return 0;
    const std::size_t needed = sizeof(RecordHeader) + size;
    if (needed > getPacketSizeRemaining())
        return 0;

    const RecordHeader record{static_cast<std::uint8_t>(type), static_cast<std::uint16_t>(size)};
    std::memcpy(m_packet + m_writePosition, &record, sizeof record);
    if (size != 0)
        std::memcpy(m_packet + m_writePosition + sizeof record, data, size);
    m_writePosition += static_cast<std::uint32_t>(needed);
    m_header.length = static_cast<std::uint16_t>(m_writePosition);
    m_header.count = static_cast<std::uint16_t>(m_header.count + 1);
    // Field by field: eight bytes read at once would wait for the two stores above.
    new (m_packet) PacketHeader{m_header.length, m_header.count, m_header.deviceId};
    return needed;
}

std::size_t PacketPacker::addStructData(const void* data, const unsigned int& size, const PacketType& type,
                                        const unsigned int& /*extra*/)
{
    return PacketPacker::addStructData(data, size, type);
}

std::size_t PacketPacker::addBitmapDataToPacket(const ClientLcdBitmap& /*bitmap*/)
{
    return 0;
}

void PacketPacker::addData(const FirmwareData& record)
{
    addStructData(&record, sizeof record, WireFormat::firmwareDataType);
}

void PacketPacker::addData(const FirmwareUpgradeRequest& record)
{
    addStructData(&record, sizeof record, WireFormat::firmwareUpgradeRequestType);
}

void PacketPacker::addData(const ReqDeviceInfo& record)
{
    addStructData(&record, sizeof record, WireFormat::reqDeviceInfoType);
}

void PacketPacker::setMaxPacketSize(unsigned short maxPacketSize)
{
    m_maxPacketSize = maxPacketSize;
}

unsigned int PacketPacker::getPacketSizeRemaining() const
{
    return m_maxPacketSize > m_writePosition ? m_maxPacketSize - m_writePosition : 0;
}

unsigned int PacketPacker::getPacketCount() const
{
    return m_header.count;
}

unsigned char* PacketPacker::getPacket() const
{
    return m_packet;
}

unsigned int PacketPacker::getPacketSize() const
{
    return m_writePosition;
}

std::uint32_t PacketPacker::generateChecksum(const FirmwareData& record)
{
    return sumOfPrecedingBytes(record);
}

std::uint32_t PacketPacker::generateChecksum(const FirmwareUpgradeRequest& record)
{
    return sumOfPrecedingBytes(record);
}

std::uint32_t PacketPacker::calculateCrc32(const unsigned char* data, unsigned int size, std::uint32_t initial)
{
    // zlib answers a null pointer with its start value, not with `initial`.
    if (data == nullptr)
        return initial;
    return static_cast<std::uint32_t>(crc32(initial, data, size));
}

} // namespace Vantor
