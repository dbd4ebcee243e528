#include "panelctl/session/Malformation.h"

#include "panelctl/terminal/Wording.h"
#include "protocol/PacketHeader.h"
#include "wire/RecordHeader.h"

#include <cstring>

namespace Vantor {

namespace {

std::string describeRest(std::size_t bytes)
{
    return std::to_string(bytes) + (bytes == 1 ? " is left" : " are left");
}

// Walks packets and records, and stops at the first record that was not delivered or thing
// that can't be right.
class Walk {
public:
    Walk(const std::vector<std::uint8_t>& buffer, std::size_t delivered) : m_buffer(buffer), m_left(delivered) {}

    std::optional<Malformation> run()
    {
        while (m_offset < m_buffer.size())
            if (auto malformation = walkPacket())
                // Before the last of what was delivered: by another library's rules it is right.
                return m_left == 0 ? malformation : std::nullopt;
        return std::nullopt;
    }

private:
    template <typename Header> Header read() const
    {
        Header header{};
        std::memcpy(&header, m_buffer.data() + m_offset, sizeof header);
        return header;
    }

    std::optional<Malformation> walkPacket()
    {
        const std::size_t rest = m_buffer.size() - m_offset;
        if (rest < sizeof(PacketHeader))
            return stop("packet-header", formatNumber(rest, "byte") + ", too few for a packet's header");
        const std::size_t length = read<PacketHeader>().length;
        const std::string packet = "a packet of " + formatNumber(length, "byte");
        if (length < sizeof(PacketHeader))
            return stop("packet-length", packet + ", less than its header has");
        if (length > rest)
            return stop("packet-length", packet + " where " + describeRest(rest));
        const std::size_t end = m_offset + length;
        m_offset += sizeof(PacketHeader);
        while (m_offset < end)
            if (auto malformation = walkRecord(end - m_offset))
                return malformation;
        return std::nullopt;
    }

    std::optional<Malformation> walkRecord(std::size_t rest)
    {
        if (rest < sizeof(RecordHeader))
            return stop("record-header", formatNumber(rest, "byte") + ", too few for a record's header");
        const auto header = read<RecordHeader>();
        const std::size_t length = header.length;
        const std::string record = "a record of type " + std::to_string(header.type);
        if (length > rest - sizeof header)
            return stop("record-length", record + " with " + formatNumber(length, "byte") + " where " +
                                             describeRest(rest - sizeof header));
        if (m_left == 0)
            return stop("refused", record + " that the parser has refused");
        --m_left;
        m_offset += sizeof header + length;
        return std::nullopt;
    }

    Malformation stop(const char* kind, const std::string& text) const { return {m_offset, kind, text}; }

    const std::vector<std::uint8_t>& m_buffer;
    std::size_t m_left; // delivered, and not walked yet
    std::size_t m_offset = 0;
};

} // namespace

std::optional<Malformation> Malformation::find(const std::vector<std::uint8_t>& buffer, std::size_t delivered)
{
    return Walk(buffer, delivered).run();
}

} // namespace Vantor
