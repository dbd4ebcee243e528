#pragma once

#include "simulator/bus/PanelOrder.h"
#include "simulator/panel/PanelModel.h"

#include <chrono>
#include <optional>

namespace Vantor {

// What the panels of a bus do in place of what their models would do of themselves, and
// when they come back.
//
// Threads: those of the bus, one at a time, for this and the scripts of the panels.
class BusScript {
public:
    BusScript() = default;
    virtual ~BusScript() = default;
    BusScript(const BusScript&) = delete;
    BusScript& operator=(const BusScript&) = delete;

    // A panel is about to be plugged in: its script, and how it presents itself.
    virtual void prepare(unsigned int panel, PanelModel::Options& options) = 0;

    // As PanelRack has them, of the orders that the script gives.
    virtual std::optional<PanelOrder> takeDue(std::chrono::nanoseconds now) = 0;
    virtual std::optional<std::chrono::nanoseconds> getNextTime() const = 0;
};

} // namespace Vantor
