#pragma once

#include "panelctl/flash/FirmwareImages.h"
#include "protocol/FirmwareUpgradeCommand.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Vantor {

// What the panel has replied during an upgrade. The library counts a confirmation of
// offset 0 each time it comes, so that its own count can run ahead of the panel; here
// every chunk counts once.
class FlashReplies {
public:
    using Counts = std::map<std::uint8_t, std::size_t>; // by the reply's command

    // The payload of a record of type 40; one of another length is not counted.
    void take(const std::vector<std::uint8_t>& payload);

    bool hasConfirmed() const { return !m_confirmed.empty(); }

    // What has come since `markProgress`, but for what confirmed a chunk.
    const Counts& getLate() const { return m_late; }
    void markProgress() { m_late.clear(); }

    // The first chunk that was never confirmed.
    std::optional<FirmwareImages::Position> findUnconfirmed(const FirmwareImages& images) const;

    // Confirmations that came again, and what stands for a chunk sent again.
    std::size_t getRepeated() const { return m_repeated; }
    const Counts& getRefusals() const { return m_refusals; }

    // Both: "send again: 2, confirmed once more: 1"; empty when there was none.
    std::string describeTroubles() const;

private:
    std::size_t m_repeated = 0; // confirmations
    Counts m_refusals;
    Counts m_late;
    std::set<std::pair<std::uint8_t, std::uint32_t>> m_confirmed; // board and offset
};

// "write failed" for 0xf0
std::string describeReply(std::uint8_t command);

// "send again: 2, write failed: 1"
std::string describeCounts(const FlashReplies::Counts& counts);

} // namespace Vantor
