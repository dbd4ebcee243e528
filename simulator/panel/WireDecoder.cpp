#include "simulator/panel/WireDecoder.h"
#include "wire/RecordHeader.h"

#include <cstddef>
#include <cstring>
#include <utility>

namespace Vantor {

namespace {

std::string at(std::uint64_t offset, const std::string& what)
{
    return "byte " + std::to_string(offset) + ": " + what;
}

std::string bytes(std::uint64_t number)
{
    return std::to_string(number) + (number == 1 ? " byte" : " bytes");
}

std::string records(std::uint64_t number)
{
    return std::to_string(number) + (number == 1 ? " record" : " records");
}

} // namespace

WireDecoder::WireDecoder(std::uint32_t packetLimit) : m_packetLimit(packetLimit) {}

void WireDecoder::setPacketLimit(std::uint32_t packetLimit)
{
    m_packetLimit = packetLimit;
}

WireDecoder::Result WireDecoder::decode(const std::vector<std::uint8_t>& transfer, std::uint32_t packetLimit)
{
    WireDecoder decoder(packetLimit);
    Result result = decoder.feed(transfer.data(), transfer.size());
    Result rest = decoder.endTransfer();
    for (std::string& violation : rest.violations)
        result.violations.push_back(std::move(violation));
    return result;
}

WireDecoder::Result WireDecoder::feed(const std::uint8_t* data, std::size_t size)
{
    Result result;
    if (m_lost) {
        m_offset += size;
        return result;
    }
    m_pending.insert(m_pending.end(), data, data + size);
    std::size_t position = 0;
    while (decodeNextPacket(position, result)) {
    }
    m_pending.erase(m_pending.begin(), m_pending.begin() + static_cast<std::ptrdiff_t>(position));
    m_offset += position;
    return result;
}

// False when no whole packet is left behind `position`, which moves past what was used.
bool WireDecoder::decodeNextPacket(std::size_t& position, Result& result)
{
    const std::size_t left = m_pending.size() - position;
    PacketHeader header{};
    if (left < sizeof header)
        return false;
    std::memcpy(&header, m_pending.data() + position, sizeof header);
    const std::uint64_t offset = m_offset + position;
    if (header.length < sizeof header) {
        result.violations.push_back(
            at(offset, "packet length " + std::to_string(header.length) + " is less than its header of 8 bytes"));
        m_lost = true;
        position = m_pending.size();
        return false;
    }
    if (left < header.length)
        return false;

    judgeHeader(header, offset, result);
    Packet packet{header, {}};
    decodeRecords(m_pending.data() + position, offset, packet, result);
    result.packets.push_back(std::move(packet));
    position += header.length;
    return true;
}

void WireDecoder::judgeHeader(const PacketHeader& header, std::uint64_t offset, Result& result) const
{
    if (offset != 0)
        result.violations.push_back(at(offset, "a further packet, a transfer carries one"));
    if (header.length > m_packetLimit)
        result.violations.push_back(
            at(offset, "packet of " + bytes(header.length) + ", the limit is " + std::to_string(m_packetLimit)));
    if (header.deviceId != 0)
        result.violations.push_back(at(offset + offsetof(PacketHeader, deviceId),
                                       "device id " + std::to_string(header.deviceId) + ", a host sends 0"));
}

void WireDecoder::decodeRecords(const std::uint8_t* packet, std::uint64_t offset, Packet& decoded, Result& result) const
{
    const std::size_t length = decoded.header.length;
    if (length == sizeof(PacketHeader) && decoded.header.count == 0) {
        result.violations.push_back(at(offset, "packet without records"));
        return;
    }
    std::size_t position = sizeof(PacketHeader);
    while (position < length) {
        RecordHeader header{};
        const std::size_t left = length - position;
        if (left < sizeof header) {
            result.violations.push_back(at(offset + position, bytes(left) + " left in the packet of " + bytes(length) +
                                                                  ", a record header has 3"));
            return;
        }
        std::memcpy(&header, packet + position, sizeof header);
        if (header.length > left - sizeof header) {
            result.violations.push_back(
                at(offset + position, "record of type " + std::to_string(header.type) + " has " + bytes(header.length) +
                                          " of payload, its packet of " + bytes(length) + " has " +
                                          std::to_string(left - sizeof header) + " left"));
            return;
        }
        if (static_cast<PacketType>(header.type) == PacketType::EncodedLcdSlice && !decoded.records.empty())
            result.violations.push_back(
                at(offset + position,
                   "encoded slice behind " + records(decoded.records.size()) + ", it is a packet's first"));
        const std::uint8_t* const payload = packet + position + sizeof header;
        decoded.records.push_back({static_cast<PacketType>(header.type), {payload, payload + header.length}});
        position += sizeof header + header.length;
    }
    if (decoded.records.size() != decoded.header.count)
        result.violations.push_back(at(offset, "packet counts " + records(decoded.header.count) + ", it holds " +
                                                   std::to_string(decoded.records.size())));
}

WireDecoder::Result WireDecoder::endTransfer()
{
    Result result;
    const std::size_t left = m_pending.size();
    if (left >= sizeof(PacketHeader)) {
        PacketHeader header{};
        std::memcpy(&header, m_pending.data(), sizeof header);
        result.violations.push_back(
            at(m_offset, "packet of " + bytes(header.length) + ", the transfer ends after " + std::to_string(left)));
    } else if (left != 0) {
        result.violations.push_back(
            at(m_offset, bytes(left) + (m_offset == 0 ? "" : " behind the last packet") + ", a packet header has 8"));
    } else if (m_offset == 0) {
        result.violations.push_back(at(0, "transfer without bytes"));
    }
    dropTransfer();
    return result;
}

void WireDecoder::dropTransfer()
{
    m_pending.clear();
    m_offset = 0;
    m_lost = false;
}

} // namespace Vantor
