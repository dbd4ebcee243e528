#pragma once

#include "panelctl/session/Panel.h"
#include "panelctl/session/TakenBytes.h"
#include "protocol/PacketType.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace Vantor {

// A batch of records given to one panel, and how much of it the panel has taken.
// The library reports no single record; what it shows is whether the packer is
// empty and how many bytes have been accepted.
//
// Threads: one. Nothing else may be sent to the panel meanwhile.
class Delivery {
public:
    explicit Delivery(const Panel& panel);

    // Queues a record; with a key, as the latest value of that key.
    void add(PacketType type, const std::optional<unsigned int>& key, const std::vector<std::uint8_t>& payload);

    // True once every record has been taken. Sure for a batch of one, and for n
    // records of at least 8 × (n - 2) bytes: a last packet under way is then larger
    // than the headers of all the others. Never true when a keyed record was replaced
    // or dropped as a duplicate, as its bytes are missed.
    bool isTaken();

    // True when the panel has taken some of a batch of one and no more will follow, as
    // a packet taken in part is not sent again.
    bool isCutShort();

    // Bytes the panel has accepted since the start, packet headers included.
    std::uint64_t getTakenBytes() { return m_taken.get(); }

    // Bytes of the records added so far with their framing, without packet headers.
    std::uint64_t getRecordBytes() const { return m_recordBytes; }

    // Bytes of all of them in one packet: the least that the panel takes.
    std::uint64_t getLeastTotal() const;

private:
    Panel m_panel;
    TakenBytes m_taken;
    std::uint64_t m_recordBytes;
};

} // namespace Vantor
