#pragma once

#include "simulator/panel/PanelModel.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Vantor {

// Is told what happens on a bus, as it happens.
//
// Threads: any, one at a time, and while nothing else happens on the bus: it must be quick,
// and must not come back to the bus.
class BusWatcher {
public:
    BusWatcher() = default;
    virtual ~BusWatcher() = default;
    BusWatcher(const BusWatcher&) = delete;
    BusWatcher& operator=(const BusWatcher&) = delete;

    virtual void onPlugged(unsigned int panel, const PanelModel& model) = 0;
    // Perhaps more than once.
    virtual void onUnplugged(unsigned int panel) = 0;

    // Somebody has ordered it, as PanelRack::logOrder has it.
    virtual void onOrder(const std::string& line) = 0;

    // Of the host, and of the panel.
    virtual void onRecord(unsigned int panel, const PanelModel::Record& record) = 0;
    virtual void onGiven(unsigned int panel, PacketType type, const std::vector<std::uint8_t>& payload) = 0;

    virtual void onDrawn(unsigned int panel, const PanelModel::Drawing& drawing) = 0;
    virtual void onViolation(unsigned int panel, const std::string& violation) = 0;
};

} // namespace Vantor
