#pragma once

#include "simulator/panel/PanelModel.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Vantor {

// Endpoint 0 of a panel: answers the standard requests with which hosts set a device up
// and programs read it. Clearing a halt goes on to the model.
//
// Threads: one at a time. Lifetime: the model must outlive it.
class ControlEndpoint {
public:
    static constexpr std::size_t setupSize = 8;
    using Setup = std::array<std::uint8_t, setupSize>;

    struct Answer {
        int status; // 0 or -EPIPE, as for a request that a device does not know
        std::vector<std::uint8_t> data;
    };

    // The one that a panel has; 0 stands for none.
    static constexpr std::uint8_t onlyConfiguration = 1;

    ControlEndpoint(PanelModel& model, std::uint8_t configuration);

    Answer answer(const Setup& setup);

    std::uint8_t getConfiguration() const;

private:
    Answer read(const Setup& setup) const;
    Answer describe(std::uint8_t type, std::uint8_t index) const;
    Answer readStatus(const Setup& setup) const;
    bool set(const Setup& setup);
    bool setConfiguration(std::uint16_t value);
    bool setInterface(std::uint16_t number, std::uint16_t setting);
    bool clearHalt(std::uint16_t endpoint);
    void clearHalts();

    PanelModel& m_model;
    const std::vector<std::uint8_t> m_descriptors;
    std::uint8_t m_configuration;
};

} // namespace Vantor
