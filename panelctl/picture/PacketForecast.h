#pragma once

#include "libMorvaneHostUsb/ClientLcdBitmap.h"
#include "protocol/DeviceInformation.h"

#include <cstdint>
#include <vector>

namespace Vantor {

// The packets that a packer with nothing else to send makes of layers for one LCD that
// are released together. Found out from a packer of its own, so that the rules stay the
// library's.
class PacketForecast {
public:
    PacketForecast(const DeviceInformation& panel, const std::vector<ClientLcdBitmap>& layers);

    // False: some of it would never leave, and would hold back everything behind it.
    bool isComplete() const { return m_isComplete; }

    // The least packet limit of a panel under which all of the layers leave; 0 when there is none.
    static unsigned int findNeededLimit(const std::vector<ClientLcdBitmap>& layers);

    // Bytes of the longest row of run-length words.
    static std::size_t getLongestRow(const ClientLcdBitmap& encoded);

    std::size_t getPackets() const { return m_ends.size(); }
    std::uint64_t getBytes() const { return m_ends.empty() ? 0 : m_ends.back(); }

    // Bytes up to the end of each packet.
    const std::vector<std::uint64_t>& getEnds() const { return m_ends; }

private:
    std::vector<std::uint64_t> m_ends;
    bool m_isComplete;
};

} // namespace Vantor
