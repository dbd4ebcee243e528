#include "tests/link/firmware/SurvivableFaults.h"

#include "protocol/FirmwareData.h"

#include <sstream>

using namespace std::chrono_literals;

namespace Vantor::Test {

using Kind = FirmwareFault::Kind;

SurvivableFaults::SurvivableFaults(Random& random, std::size_t mainSize, bool silentWithoutRequest)
    : m_random(random), m_lastMainChunk(mainSize == 0 ? 0 : static_cast<std::uint32_t>((mainSize - 1) / 4096 * 4096)),
      m_requestMayBeLost(silentWithoutRequest && mainSize != 0), m_left(random.below(40)), m_oneIn(1 + random.below(12))
{
    // Only some kinds, so that they also come without each other.
    for (bool& wanted : m_wanted)
        wanted = m_random.oneIn(3);
}

std::optional<FirmwareFault> SurvivableFaults::operator()(const FirmwarePacket& packet)
{
    if (m_left == 0 || !m_random.oneIn(m_oneIn))
        return std::nullopt;
    FirmwareFault fault{packet.number, static_cast<Kind>(m_random.below(static_cast<unsigned int>(kinds))), 0, 0ms};
    if (!m_wanted[static_cast<std::size_t>(fault.kind)] || !choose(fault, packet))
        return std::nullopt;
    --m_left;
    return fault;
}

// Nothing that can have chunk 0 of an image sent, and so acknowledged, twice.
bool SurvivableFaults::mayBeSlow(const FirmwarePacket& packet) const
{
    const bool isLastOfMain = packet.board == FirmwareData::MainMcu && packet.address == m_lastMainChunk;
    return !packet.isRequest && packet.address != 0 && !isLastOfMain;
}

bool SurvivableFaults::choose(FirmwareFault& fault, const FirmwarePacket& packet)
{
    switch (fault.kind) {
    case Kind::SendLost:
    case Kind::ReplyLost:
        return fault.kind == Kind::ReplyLost || !packet.isRequest || m_requestMayBeLost;
    case Kind::SendCorrupt:
        fault.value = m_random.below(8 * packet.size);
        return !packet.isRequest || m_requestMayBeLost;
    case Kind::SendCut:
        fault.value = m_random.between(1, packet.size - 1);
        return !packet.isRequest || m_requestMayBeLost;
    case Kind::ReplyCode: {
        static const std::uint8_t codes[] = {0, 2, 3, 7, 0xEF, 0xF0, 0xF1, 0xF2, 0xF3, 0xFF};
        fault.value = codes[m_random.below(sizeof codes)];
        return !packet.isRequest;
    }
    case Kind::ReplyCorrupt: {
        // Not the address: that is what a repetition is known by.
        static const unsigned int offsets[] = {0, 1, 6, 9, 10, 13};
        fault.value = offsets[m_random.below(6)];
        return true;
    }
    case Kind::ReplyTwice:
        return packet.isRequest || packet.address != 0;
    case Kind::ReplyLate:
    case Kind::SendHeld:
    case Kind::ReadHeld:
        fault.delay = std::chrono::milliseconds(m_random.below(mayBeSlow(packet) ? 1500 : 200));
        return true;
    case Kind::SendTimedOut:
    case Kind::ReadTimedOut:
        return mayBeSlow(packet);
    case Kind::ReadCut:
        fault.value = m_random.between(1, 24);
        return true;
    default:
        return true;
    }
}

std::size_t randomImageSize(Random& random)
{
    static const std::size_t edges[] = {0, 1, 4095, 4096, 4097, 8191, 8192, 8193, 12288};
    switch (random.below(20)) {
    case 0:
        return random.oneIn(5) ? random.below((1U << 20) + 1) : random.below(200000);
    case 1:
    case 2:
    case 3:
    case 4:
        return random.below(30000);
    case 5:
        return std::size_t{4096} * random.below(12);
    default:
        return edges[random.below(9)];
    }
}

std::string described(const FirmwareFaults& faults)
{
    std::ostringstream text;
    for (const FirmwareFault& fault : faults)
        text << fault << " ";
    return text.str();
}

} // namespace Vantor::Test
