#pragma once

// A protocol library of somebody else's: its own header, its own records, nothing from
// protocol/ but what both must agree on. The library finds it by its symbols alone.
#include <cstddef>
#include <cstdint>

#define MORVANE_FOREIGN_API __attribute__((visibility("default")))

namespace Vantor {

class ClientLcdBitmap;
union DataPacketUnion;

enum class PacketType : std::int32_t {};

struct __attribute__((packed)) FirmwareData {
    std::uint8_t board;
    std::uint32_t address;
    std::uint32_t length;
    std::uint8_t data[4096];
    std::uint32_t checksum;
};

struct __attribute__((packed)) FirmwareUpgradeRequest {
    std::uint8_t bytes[30];
    std::uint32_t checksum;
};

struct __attribute__((packed)) ReqDeviceInfo {
    std::uint32_t request;
};

class MORVANE_FOREIGN_API PacketPacker {
public:
    explicit PacketPacker(const unsigned int& maxPacketSize);
    virtual ~PacketPacker();

    virtual void clearData();
    virtual std::size_t addStructData(const void* data, const unsigned int& size, const PacketType& type);
    virtual std::size_t addStructData(const void* data, const unsigned int& size, const PacketType& type,
                                      const unsigned int& extra);
    virtual std::size_t addBitmapDataToPacket(const ClientLcdBitmap& bitmap);

    void addData(const FirmwareData& record);
    void addData(const FirmwareUpgradeRequest& record);
    void addData(const ReqDeviceInfo& record);
    void setMaxPacketSize(unsigned short maxPacketSize);
    unsigned int getPacketSizeRemaining() const;
    unsigned int getPacketCount() const;
    unsigned char* getPacket() const;
    unsigned int getPacketSize() const;
    unsigned int generateChecksum(const FirmwareData& record);
    unsigned int generateChecksum(const FirmwareUpgradeRequest& record);
    unsigned int calculateCrc32(const unsigned char* data, unsigned int size, unsigned int initial);

protected:
    unsigned char* m_packet;
    std::uint32_t m_writePosition;
    std::uint16_t m_maxPacketSize;
    struct {
        std::uint16_t length;
        std::uint16_t count;
        std::uint8_t rest[4];
    } m_header;

private:
    void writeHeader();
    void requireMark() const;
};

class MORVANE_FOREIGN_API PackedPacketParser {
public:
    class MORVANE_FOREIGN_API Observer {
    public:
        virtual ~Observer();
        virtual void handleParsedPacket(unsigned short deviceId, const PacketType& type, const DataPacketUnion& data,
                                        unsigned int size) = 0;
    };

    explicit PackedPacketParser(Observer* observer);
    ~PackedPacketParser();
    void parse(unsigned char* data, unsigned int size);

private:
    Observer* m_observer;
};

} // namespace Vantor
