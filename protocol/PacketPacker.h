#pragma once

#include "protocol/FirmwareData.h"
#include "protocol/FirmwareUpgradeRequest.h"
#include "protocol/PacketHeader.h"
#include "protocol/PacketType.h"
#include "protocol/ReqDeviceInfo.h"
#include "protocol/Visibility.h"

#include <cstddef>
#include <cstdint>

namespace Vantor {

class ClientLcdBitmap;

// Frames records into one outgoing packet at a time. The protocol library
// defines this class; PriorityPacker derives from it and decides what goes in.
//
// Threads: none of its own and no locking; the deriving class serialises calls.
// Lifetime: the packet buffer is allocated once and never moves, so a transfer
// may point into it for as long as the object lives.
class MORVANE_PROTOCOL_API PacketPacker {
public:
    // An empty packet with a limit of maxPacketSize bytes, header included;
    // limits above 65,535 are taken as 65,535.
    explicit PacketPacker(const unsigned int& maxPacketSize);
    virtual ~PacketPacker();

    PacketPacker(const PacketPacker&) = delete;
    PacketPacker& operator=(const PacketPacker&) = delete;

    // Empties the packet being built.
    virtual void clearData();

    // Appends one record of `size` payload bytes. Returns the bytes it takes in the
    // packet (3 + size), or 0 when it was not taken: it does not fit, size is above
    // 65,535, or data is null with a size.
    virtual std::size_t addStructData(const void* data, const unsigned int& size, const PacketType& type);

    // As above; the base ignores `extra`.
    virtual std::size_t addStructData(const void* data, const unsigned int& size, const PacketType& type,
                                      const unsigned int& extra);

    // The base knows no bitmaps: adds nothing and returns 0.
    virtual std::size_t addBitmapDataToPacket(const ClientLcdBitmap& bitmap);

    // Hand the record's bytes, with the type under which it travels, to the
    // virtual three-argument addStructData.
    void addData(const FirmwareData& record);
    void addData(const FirmwareUpgradeRequest& record);
    void addData(const ReqDeviceInfo& record);

    // Limit for what is added from now on; bytes already in the packet stay.
    void setMaxPacketSize(unsigned short maxPacketSize);

    // Bytes still free under the limit; 0 when the packet already exceeds it.
    unsigned int getPacketSizeRemaining() const;

    // Records in the packet.
    unsigned int getPacketCount() const;

    // The packet's bytes, header included, valid until the packer is changed.
    unsigned char* getPacket() const;

    // Its length in bytes; 8, the header alone, when it is empty.
    unsigned int getPacketSize() const;

    // The 32-bit checksum that the panel checks: over the bytes before the
    // record's own checksum field. Not static, though the reference library needs no
    // packer for it: static and ordinary members share a mangled name, and a protocol
    // library may have a use for its object.
    std::uint32_t generateChecksum(const FirmwareData& record);
    std::uint32_t generateChecksum(const FirmwareUpgradeRequest& record);

    // CRC-32 of `size` bytes, continuing from `initial` (0 to begin).
    std::uint32_t calculateCrc32(const unsigned char* data, unsigned int size, std::uint32_t initial);

protected:
    // PriorityPacker appends LCD slices through these members directly: write the
    // record behind m_writePosition, then call nothing but set the header's length
    // and count and copy it to the start of m_packet.
    unsigned char* m_packet;       // the packet's bytes, the copy of m_header first
    std::uint32_t m_writePosition; // bytes used, header included
    std::uint16_t m_maxPacketSize;
    PacketHeader m_header;

private:
    // Never called: its body is where the class is complete.
    static void checkLayout()
    {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
        static_assert(offsetof(PacketPacker, m_packet) == sizeof(void*));
        static_assert(offsetof(PacketPacker, m_writePosition) == 2 * sizeof(void*));
        static_assert(offsetof(PacketPacker, m_maxPacketSize) == 2 * sizeof(void*) + 4);
        static_assert(offsetof(PacketPacker, m_header) == 2 * sizeof(void*) + 6);
#pragma GCC diagnostic pop
    }
};

} // namespace Vantor
