#pragma once

#include "tests/link/firmware/FaultyPanel.h"
#include "tests/support/Random.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace Vantor::Test {

// The faults that an upgrade survives, mixed anew for each, and no more of them after a
// while. FirmwareRulesTest.cpp has the others.
class SurvivableFaults {
public:
    // The request may be lost when the panel is silent without one, and there is a main
    // image: silence alone has it sent again.
    SurvivableFaults(Random& random, std::size_t mainSize, bool silentWithoutRequest);

    std::optional<FirmwareFault> operator()(const FirmwarePacket& packet);

private:
    static constexpr std::size_t kinds = static_cast<std::size_t>(FirmwareFault::Kind::ReadTimedOut) + 1;

    bool mayBeSlow(const FirmwarePacket& packet) const;
    bool choose(FirmwareFault& fault, const FirmwarePacket& packet);

    Random& m_random;
    const std::uint32_t m_lastMainChunk;
    const bool m_requestMayBeLost;
    unsigned int m_left;
    const unsigned int m_oneIn;
    std::array<bool, kinds> m_wanted{};
};

// Sizes of images, most of them around a whole number of chunks, a few up to 1 MiB.
std::size_t randomImageSize(Random& random);

// What a failing test prints.
std::string described(const FirmwareFaults& faults);

} // namespace Vantor::Test
