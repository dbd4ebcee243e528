#pragma once

#include "protocol/DataPacketUnion.h"
#include "protocol/PacketType.h"
#include "protocol/Visibility.h"

#include <cstdint>

namespace Vantor {

// Splits a received buffer into packets and records. The protocol library defines
// this class.
//
// Threads: one at a time; the observer is called on the thread that calls parse.
// Lifetime: the observer must outlive the parser's last parse.
class MORVANE_PROTOCOL_API PackedPacketParser {
public:
    class MORVANE_PROTOCOL_API Observer {
    public:
        virtual ~Observer() = default;

        // One record: its payload of `size` bytes and the device id of the buffer.
        // `data` is valid during the call only.
        virtual void handleParsedPacket(unsigned short deviceId, const PacketType& type, const DataPacketUnion& data,
                                        unsigned int size) = 0;
    };

    explicit PackedPacketParser(Observer* observer);
    // Out of line: a protocol library may need one. NOLINTNEXTLINE(performance-trivially-destructible)
    ~PackedPacketParser();

    PackedPacketParser(const PackedPacketParser&) = delete;
    PackedPacketParser& operator=(const PackedPacketParser&) = delete;

    // Calls the observer once per record, in buffer order. Every record carries the
    // device id of the buffer's first packet header. Stops, and counts one
    // rejection, at the first thing that cannot be right: a rest too short for a
    // header, a packet length below 8 or beyond the buffer, a record that reaches
    // past its packet. Records before it have been delivered.
    void parse(unsigned char* data, unsigned int size);

    // Buffers whose rest was rejected since construction.
    std::uint32_t getRejectedCount() const;

private:
    Observer* m_observer;
    std::uint32_t m_rejectedCount;
};

} // namespace Vantor
