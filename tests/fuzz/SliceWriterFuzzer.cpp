// What an application may hand to the slice writers: layers whose geometry, sizes and
// cursor say anything, in packets of any limit. An input is a 16-bit packet limit and a
// sequence of actions, each a byte (see act) and what it needs; what the input no longer
// has is 0.
#include "libMorvaneHostUsb/PriorityPacker.h"
#include "tests/fuzz/Require.h"
#include "tests/support/Bytes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

using namespace Vantor;

namespace {

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

    bool isAtEnd() const { return m_size == 0; }

    unsigned int take8()
    {
        if (m_size == 0)
            return 0;
        --m_size;
        return *m_data++;
    }

    unsigned int take16()
    {
        const unsigned int low = take8();
        return low | take8() << 8;
    }

    std::uint32_t take32()
    {
        const std::uint32_t low = take16();
        return low | take16() << 16;
    }

    Bytes takeBytes(std::size_t size)
    {
        const std::size_t there = std::min(size, m_size);
        Bytes bytes(m_data, m_data + there);
        m_data += there;
        m_size -= there;
        bytes.resize(size);
        return bytes;
    }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
};

// The buffer is as large as the input says, and not as the geometry asks for.
ClientLcdBitmap takeLayer(Input& input)
{
    ClientLcdBitmap layer(static_cast<unsigned char>(input.take8()), static_cast<unsigned char>(input.take8()),
                          static_cast<unsigned char>(input.take8()));
    layer.lcd = static_cast<std::uint16_t>(input.take8() % 4);
    layer.x = static_cast<std::uint8_t>(input.take8());
    layer.y = static_cast<std::uint8_t>(input.take8());
    layer.encoded = static_cast<std::uint8_t>(input.take8() % 2);
    layer.encodedSize = input.take32();
    layer.buffer = input.takeBytes(input.take16() % 4096);
    return layer;
}

class Target {
public:
    explicit Target(unsigned int limit) : m_packer(limit), m_limit(limit) {}

    void act(Input& input)
    {
        const unsigned int action = input.take8();
        switch (action % 8) {
        case 0:
            writeOne(input, true);
            break;
        case 1:
            writeOne(input, false);
            break;
        case 2:
        case 3:
            m_packer.drawBitmapData(takeLayer(input));
            break;
        case 4:
            flatten(static_cast<std::uint16_t>(action / 8 % 4));
            break;
        case 5:
            m_packer.lockLcd(static_cast<std::uint16_t>(action / 8 % 4));
            break;
        case 6:
            m_packer.unlockLcd(static_cast<std::uint16_t>(action / 8 % 4));
            break;
        default:
            sendAll();
        }
    }

    // Ends: every slice takes a row of a layer, or the whole layer.
    void sendAll()
    {
        for (;;) {
            m_packer.clearData();
            if (m_packer.prepareNextPacket() == 0)
                return;
            checkPacket();
        }
    }

private:
    // Slow on large layers, so only a few times.
    void flatten(std::uint16_t lcd)
    {
        if (++m_flattened <= 4)
            m_packer.flattenLcdImage(lcd);
    }

    // One slice of a layer whose cursor stands anywhere, but where the raw writer asserts.
    void writeOne(Input& input, bool isRaw)
    {
        ClientLcdBitmap layer = takeLayer(input);
        layer.byteOffset = input.take32();
        layer.rowOffset = static_cast<std::uint8_t>(input.take8());
        if (isRaw)
            layer.rowOffset = std::min(layer.rowOffset, layer.height);
        if (input.take8() % 2 == 0)
            m_packer.clearData();

        const Bytes before = packet();
        const unsigned int count = m_packer.getPacketCount();
        const std::uint32_t unmoved = layer.byteOffset;
        // A raw cursor at the end of the buffer starts again, also for a slice that does not fit.
        const std::uint32_t offset = isRaw && unmoved >= layer.size() ? 0 : unmoved;
        const std::uint8_t row = layer.rowOffset;
        const std::size_t written =
            isRaw ? m_packer.addBitmapDataToPacket(layer) : m_packer.addBitmapDataToPacketEncoded(layer);
        if (written == 0) {
            require(packet() == before, "what does not fit leaves the packet alone");
            require(layer.rowOffset == row && (layer.byteOffset == offset || layer.byteOffset == unmoved),
                    "and the cursor");
            return;
        }
        require(packet().size() == before.size() + written && m_packer.getPacketCount() == count + 1, "one record");
        checkSlice(layer, packet().data() + before.size(), written, isRaw, offset, row);
        require(!isRaw || layer.rowOffset <= layer.height, "the raw cursor stays inside");
        checkPacket();
    }

    static void checkSlice(const ClientLcdBitmap& layer, const std::uint8_t* record, std::size_t written, bool isRaw,
                           std::uint32_t offset, std::uint8_t row)
    {
        const auto top = static_cast<std::uint8_t>(layer.y + row);
        const Bytes expected = {static_cast<std::uint8_t>(isRaw ? 38 : 46),
                                static_cast<std::uint8_t>(written - 3),
                                static_cast<std::uint8_t>((written - 3) >> 8),
                                static_cast<std::uint8_t>(layer.lcd),
                                0,
                                layer.x,
                                top,
                                layer.width,
                                record[8], // rows
                                layer.bitsPerPixel};
        require(std::equal(expected.begin(), expected.end(), record), "the slice's header");
        const std::size_t size = written - expected.size();
        require(offset + size <= layer.size(), "the data comes from the buffer");
        require(size == 0 || std::memcmp(record + expected.size(), layer.data() + offset, size) == 0, "the data");
        const unsigned int rows = record[8];
        require(!isRaw || (rows > 0 && rows <= static_cast<unsigned int>(layer.height - row)), "rows of the layer");
        require(!isRaw || size == std::size_t{rows} * layer.width * layer.bitsPerPixel / 8, "whole bytes of its rows");
    }

    // Less than a word of run-length data passes the limit, by two bytes at most.
    void checkPacket() const
    {
        require(m_packer.getPacketSize() <= std::max(m_limit, 8U) + 2, "the packet keeps to its limit");
        const Bytes bytes = packet();
        std::size_t at = 8;
        for (unsigned int i = 0; i < m_packer.getPacketCount(); ++i) {
            require(at + 3 <= bytes.size(), "a record's header is inside");
            at += 3 + bytes[at + 1] + bytes[at + 2] * std::size_t{256};
        }
        require(at == bytes.size(), "the records fill the packet");
    }

    Bytes packet() const { return {m_packer.getPacket(), m_packer.getPacket() + m_packer.getPacketSize()}; }

    PriorityPacker m_packer;
    unsigned int m_limit;
    int m_flattened = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr int mostActions = 64; // more of them take time and show nothing new
    Input input(data, size);
    Target target(input.take16());
    for (int i = 0; i < mostActions && !input.isAtEnd(); ++i)
        target.act(input);
    target.sendAll();
    return 0;
}
