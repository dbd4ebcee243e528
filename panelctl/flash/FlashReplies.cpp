#include "panelctl/flash/FlashReplies.h"

#include "panelctl/terminal/Wording.h"

#include <algorithm>
#include <cstring>

namespace Vantor {

void FlashReplies::take(const std::vector<std::uint8_t>& payload)
{
    FirmwareUpgradeCommand reply{};
    if (payload.size() != sizeof reply)
        return;
    std::memcpy(&reply, payload.data(), sizeof reply);
    const std::uint32_t address = reply.address; // a packed field takes no reference
    const bool isConfirmation = reply.command == FirmwareUpgradeCommand::ChunkWritten;
    if (isConfirmation && m_confirmed.emplace(reply.board, address).second)
        return;
    ++m_late[reply.command];
    if (isConfirmation)
        ++m_repeated;
    // Before the first chunk "send again" means "go on": an answer to the request.
    else if (reply.command != FirmwareUpgradeCommand::SendAgain || hasConfirmed())
        ++m_refusals[reply.command];
}

std::optional<FirmwareImages::Position> FlashReplies::findUnconfirmed(const FirmwareImages& images) const
{
    for (std::uint32_t bytes = 0; bytes < images.getTotal();) {
        const FirmwareImages::Position position = images.locate(bytes);
        if (m_confirmed.count({position.board, position.offset}) == 0)
            return position;
        bytes += std::min(FirmwareData::chunkSize, position.size - position.offset);
    }
    return std::nullopt;
}

std::string FlashReplies::describeTroubles() const
{
    std::string refusals = describeCounts(m_refusals);
    if (m_repeated == 0)
        return refusals;
    return refusals + (refusals.empty() ? "" : ", ") + "confirmed once more: " + std::to_string(m_repeated);
}

std::string describeCounts(const FlashReplies::Counts& counts)
{
    std::string text;
    for (const auto& [command, number] : counts)
        text += (text.empty() ? "" : ", ") + describeReply(command) + ": " + std::to_string(number);
    return text;
}

std::string describeReply(std::uint8_t command)
{
    switch (command) {
    case FirmwareUpgradeCommand::Invalid:
        return "invalid";
    case FirmwareUpgradeCommand::ChunkWritten:
        return "chunk written";
    case FirmwareUpgradeCommand::SendAgain:
        return "send again";
    case FirmwareUpgradeCommand::WriteFailed:
        return "write failed";
    case FirmwareUpgradeCommand::EraseFailed:
        return "erase failed";
    case FirmwareUpgradeCommand::FailedSendAgain:
        return "failed, send again";
    default:
        return "unknown (0x" + formatHex(command, 2) + ")";
    }
}

} // namespace Vantor
