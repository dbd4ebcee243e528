#pragma once

#include "simulator/panel/BootLoader.h"
#include "simulator/panel/PanelModel.h"

#include <cstdint>
#include <map>

namespace Vantor {

// What the counters of one panel said when they were read.
struct PanelReadings {
    struct Image {
        BootLoader::State state = BootLoader::State::Untouched;
        std::uint32_t size = 0;
        std::uint32_t written = 0;
        std::uint32_t crc = 0;
    };

    std::uint64_t packetsOut = 0; // to the panel
    std::uint64_t bytesOut = 0;
    std::uint64_t recordsOut = 0;
    std::uint64_t packetsIn = 0;
    std::uint64_t bytesIn = 0;
    Image main;
    Image servo;
    BootLoader::Statistics firmware;

    static PanelReadings of(const PanelModel& model);

    bool hasTrafficOf(const PanelReadings& other) const;
    bool hasFirmwareOf(const PanelReadings& other) const;
};

using AllReadings = std::map<unsigned int, PanelReadings>; // by panel

} // namespace Vantor
