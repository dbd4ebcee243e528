#include "ForeignProtocol.h"

#include <cstdlib>
#include <cstring>

namespace Vantor {

namespace {

// Stands in front of the packet: an operation that is called on anything but a packer of
// this library does not find it.
constexpr std::uint64_t ownMark = 0x4D524B314D524B32;
constexpr std::size_t largestPacket = 65535;
constexpr unsigned int headerSize = 8;
constexpr unsigned int frameSize = 3;

// In the order of their bytes in the record.
template <typename Record> unsigned int sumBeforeChecksum(const Record& record)
{
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&record);
    unsigned int sum = 0;
    for (std::size_t i = 0; i < sizeof record - sizeof record.checksum; ++i)
        sum += bytes[i];
    return sum;
}

unsigned int sixteenBits(const unsigned char* bytes)
{
    return bytes[0] + 256u * bytes[1];
}

} // namespace

PacketPacker::PacketPacker(const unsigned int& maxPacketSize)
    : m_packet(static_cast<unsigned char*>(std::calloc(1, sizeof ownMark + largestPacket)) + sizeof ownMark),
      m_writePosition(headerSize), m_maxPacketSize(static_cast<std::uint16_t>(maxPacketSize)), m_header{}
{
    std::memcpy(m_packet - sizeof ownMark, &ownMark, sizeof ownMark);
    writeHeader();
}

PacketPacker::~PacketPacker()
{
    std::free(m_packet - sizeof ownMark);
}

void PacketPacker::writeHeader()
{
    m_header.length = static_cast<std::uint16_t>(m_writePosition);
    std::memcpy(m_packet, &m_header, sizeof m_header);
}

void PacketPacker::clearData()
{
    m_writePosition = headerSize;
    m_header.count = 0;
    writeHeader();
}

std::size_t PacketPacker::addStructData(const void* data, const unsigned int& size, const PacketType& type)
{
    if (size > largestPacket || size + frameSize > getPacketSizeRemaining())
        return 0;
    unsigned char* const record = m_packet + m_writePosition;
    record[0] = static_cast<unsigned char>(type);
    record[1] = static_cast<unsigned char>(size);
    record[2] = static_cast<unsigned char>(size >> 8);
    std::memcpy(record + frameSize, data, size);
    m_writePosition += frameSize + size;
    ++m_header.count;
    writeHeader();
    return frameSize + size;
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
    addStructData(&record, sizeof record, PacketType{44});
}

void PacketPacker::addData(const FirmwareUpgradeRequest& record)
{
    addStructData(&record, sizeof record, PacketType{41});
}

void PacketPacker::addData(const ReqDeviceInfo& record)
{
    addStructData(&record, sizeof record, PacketType{1});
}

void PacketPacker::setMaxPacketSize(unsigned short maxPacketSize)
{
    m_maxPacketSize = maxPacketSize;
}

unsigned int PacketPacker::getPacketSizeRemaining() const
{
    return m_writePosition < m_maxPacketSize ? m_maxPacketSize - m_writePosition : 0;
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

void PacketPacker::requireMark() const
{
    if (std::memcmp(m_packet - sizeof ownMark, &ownMark, sizeof ownMark) != 0)
        std::abort();
}

unsigned int PacketPacker::generateChecksum(const FirmwareData& record)
{
    requireMark();
    return sumBeforeChecksum(record);
}

unsigned int PacketPacker::generateChecksum(const FirmwareUpgradeRequest& record)
{
    requireMark();
    return sumBeforeChecksum(record);
}

// The polynomial 0xEDB88320, bit by bit.
unsigned int PacketPacker::calculateCrc32(const unsigned char* data, unsigned int size, unsigned int initial)
{
    requireMark();
    unsigned int crc = ~initial;
    for (unsigned int i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) != 0 ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
    }
    return ~crc;
}

PackedPacketParser::Observer::~Observer() = default;

PackedPacketParser::PackedPacketParser(Observer* observer) : m_observer(observer) {}

PackedPacketParser::~PackedPacketParser() = default;

// Trusts its panel: this library is not what is tested with bad input.
void PackedPacketParser::parse(unsigned char* data, unsigned int size)
{
    const auto deviceId = static_cast<unsigned short>(sixteenBits(data + 4));
    for (unsigned int packet = 0; packet + headerSize <= size; packet += sixteenBits(data + packet)) {
        const unsigned int end = packet + sixteenBits(data + packet);
        unsigned int record = packet + headerSize;
        while (record + frameSize <= end && end <= size) {
            const auto type = static_cast<PacketType>(data[record]);
            const unsigned int length = sixteenBits(data + record + 1);
            unsigned char padded[83] = {};
            const unsigned char* payload = data + record + frameSize;
            if (length < sizeof padded) {
                std::memcpy(padded, payload, length);
                payload = padded;
            }
            m_observer->handleParsedPacket(deviceId, type, *reinterpret_cast<const DataPacketUnion*>(payload), length);
            record += frameSize + length;
        }
        if (end <= packet)
            return;
    }
}

} // namespace Vantor
