#pragma once

#include <cstdint>
#include <vector>

namespace Vantor {

// Endpoint 0 of a panel: answers the standard requests that programs read a device
// with. Immutable.
class ControlEndpoint {
public:
    struct Answer {
        int status; // 0 or -EPIPE, as for a request that a device does not know
        std::vector<std::uint8_t> data;
    };

    // `descriptors`: the device descriptor and the configuration behind it; strings are
    // those of PanelDescriptors.
    explicit ControlEndpoint(std::vector<std::uint8_t> descriptors);

    // `setup`: the 8 bytes of the set-up packet.
    Answer answer(const std::vector<std::uint8_t>& setup) const;

private:
    Answer describe(std::uint8_t type, std::uint8_t index) const;

    std::vector<std::uint8_t> m_descriptors;
};

} // namespace Vantor
