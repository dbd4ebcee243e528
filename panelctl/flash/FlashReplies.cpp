#include "panelctl/flash/FlashReplies.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace Vantor {

void FlashReplies::take(const std::vector<std::uint8_t>& payload)
{
    FirmwareUpgradeCommand reply{};
    if (payload.size() != sizeof reply)
        return;
    std::memcpy(&reply, payload.data(), sizeof reply);
    ++m_count;
    m_last = reply;
    // Before the first chunk it means "go on": an answer to the request.
    if (reply.command == FirmwareUpgradeCommand::SendAgain && m_confirmed.empty())
        return;
    const std::uint32_t address = reply.address; // a packed field takes no reference
    if (reply.command != FirmwareUpgradeCommand::ChunkWritten)
        ++m_refusals[reply.command];
    else if (!m_confirmed.emplace(reply.board, address).second)
        ++m_repeated;
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
    std::string text;
    const auto add = [&text](std::size_t number, const std::string& what) {
        text += (text.empty() ? "" : ", ") + what + ": " + std::to_string(number);
    };
    for (const auto& [command, number] : m_refusals)
        add(number, describeReply(command));
    if (m_repeated != 0)
        add(m_repeated, "confirmed once more");
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
        char text[24];
        std::snprintf(text, sizeof text, "unknown (0x%02x)", static_cast<unsigned int>(command));
        return text;
    }
}

} // namespace Vantor
