#pragma once

#include "panelctl/session/Handover.h"
#include "protocol/PacketHeader.h"
#include "protocol/PacketType.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Vantor {

// A batch of records given to one panel. Threads: as Handover.
class Delivery {
public:
    explicit Delivery(const Panel& panel) : m_handover(panel) {}

    // Queues a record; with a key, as the latest value of that key.
    void add(PacketType type, const std::optional<unsigned int>& key, const std::vector<std::uint8_t>& payload);

    // True once every record has been taken. Sure for a batch of one, and for n
    // records of at least 8 × (n - 2) bytes: a last packet under way is then larger
    // than the headers of all the others. Never true when a keyed record was replaced
    // or dropped as a duplicate, as its bytes are missed.
    bool isTaken() { return m_handover.isTaken(getLeastTotal()); }

    // Waits until a batch of one is taken. Throws Failure, with `note` behind its text.
    void await(Session& session, std::chrono::nanoseconds limit, const std::string& note = "");

    // Bytes the panel has accepted since the start, packet headers included.
    std::uint64_t getTakenBytes() { return m_handover.getTakenBytes(); }

    // Bytes of the records added so far with their framing, without packet headers.
    std::uint64_t getRecordBytes() const { return m_recordBytes; }

private:
    // Bytes of all of them in one packet: the least that the panel takes.
    std::uint64_t getLeastTotal() const { return m_recordBytes + sizeof(PacketHeader); }

    Handover m_handover;
    std::uint64_t m_recordBytes = 0;
};

} // namespace Vantor
