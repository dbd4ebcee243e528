#pragma once

#include "simulator/bus/BusScript.h"
#include "simulator/bus/BusWatcher.h"
#include "simulator/bus/LinkTap.h"
#include "simulator/bus/PanelOrder.h"
#include "simulator/panel/BootLoader.h"
#include "simulator/panel/PanelModel.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Vantor {

// A USB bus with simulated panels, as orders see it.
class PanelBus {
public:
    static constexpr unsigned int maxPanels = 31; // ports of a hub

    using Log = std::function<void(const std::string& line)>;

    struct Options {
        PanelModel::Options panel; // of panel 0; panel P has the seed P higher
        Log log;                   // one line for each thing that happens, from any thread, one at a time
        LinkTap::Listener record;  // what crosses the links, from any thread, one at a time
        // Also a plug, unplug or fault that could not be carried out: on the thread of `execute`
        // before that returns.
        Log complain;
        // What is in the flash memory of a panel that has been unplugged, on the thread that
        // unplugs it; it is not plugged back meanwhile. What it throws is complained of, or
        // comes back from unplug.
        std::function<void(unsigned int panel, const BootLoader::Flash& flash)> keepFlash;
        std::shared_ptr<BusScript> script; // null: panels do as their models do
        // Every record of the host, before it is answered; one at a time.
        std::function<void(unsigned int panel, const PanelModel::Record& record)> observeRecord;
        BusWatcher* watcher = nullptr; // null: nobody; must outlive the bus
    };

    PanelBus() = default;
    virtual ~PanelBus() = default;
    PanelBus(const PanelBus&) = delete;
    PanelBus& operator=(const PanelBus&) = delete;

    // What the flash memory of a panel holds when it is plugged in next. Without it that is
    // what it held when it was unplugged.
    virtual void setFlash(unsigned int panel, BootLoader::Flash flash) = 0;

    // Do nothing but complain when the panel is plugged already, or not plugged, or has no
    // port. They return when the bus shows it; the host notices in its own time.
    virtual void plug(unsigned int panel) = 0;
    virtual void unplug(unsigned int panel) = 0;

    // Carries out an order now; a repeated emission goes on in its own time. The log has
    // "order: " and the order in front of what comes of it.
    virtual void execute(const PanelOrder& order) = 0;

    // As execute, `delay` from now.
    virtual void schedule(std::chrono::nanoseconds delay, const PanelOrder& order) = 0;

    // Of the scheduled orders those that have not begun, with their delays, in the order of
    // their times. They come no more.
    virtual std::vector<TimedOrder> takePending() = 0;

    // Hands over the panel plugged in last under this number, while nothing else
    // happens on the bus; false when there has been none.
    virtual bool visit(unsigned int panel, const std::function<void(PanelModel&)>& visitor) = 0;

    // Of all panels that were ever plugged, each line with the panel's number.
    virtual std::vector<std::string> getViolations() const = 0;
};

} // namespace Vantor
