#pragma once

#include "simulator/bus/BusPanel.h"
#include "simulator/bus/LinkTap.h"
#include "simulator/bus/PanelBus.h"
#include "simulator/bus/PanelOrder.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Vantor {

// What all buses of simulated panels have alike: the panels by their numbers, and what
// outlives them; orders, and those that wait for their time; what is said of it all.
//
// Threads: one at a time. Lifetime: must outlive its panels.
class PanelRack {
public:
    // Time since now.
    static PanelModel::Clock startClock();

    explicit PanelRack(PanelBus::Options options, PanelModel::Clock clock = startClock());

    std::chrono::nanoseconds now() const { return m_clock(); }

    // As PanelBus has them. Of orders, those that BusPanel::act can carry out; the rest of a
    // repeated emission waits for its time.
    void setFlash(unsigned int panel, BootLoader::Flash flash) { m_flash[panel] = std::move(flash); }
    void execute(const PanelOrder& order);
    void schedule(std::chrono::nanoseconds delay, const PanelOrder& order);
    std::vector<TimedOrder> takePending();
    bool visit(unsigned int panel, const std::function<void(PanelModel&)>& visitor) const;
    std::vector<std::string> getViolations() const;

    // What somebody has ordered, so that the log can be read as a script; not the rest of a
    // repeated emission, which comes by itself.
    void logOrder(const PanelOrder& order) const;

    // The other orders, plug and unplug: false for one that is none of them.
    static bool plugOrUnplug(PanelBus& bus, const PanelOrder& order);

    // When not, there is a complaint.
    bool canPlug(unsigned int panel) const;
    bool canUnplug(unsigned int panel) const;

    // That of a panel that has been unplugged, for whoever keeps it.
    void keepFlash(const BusPanel& panel) const;

    // When the next order, or a panel, has something to do.
    std::optional<std::chrono::nanoseconds> getNextTime() const;

    // The next order that is due; those of the same time in the order in which they were given.
    std::optional<PanelOrder> takeDue();

    // Every panel.
    void settle() const;

    // Complains of what is thrown, for want of anybody to throw it to.
    void attempt(unsigned int panel, const std::function<void()>& action) const;

    bool isObserved() const { return static_cast<bool>(m_options.observeRecord); }
    void observe(unsigned int panel, const PanelModel::Record& record) const;
    BusWatcher* getWatcher() const { return m_options.watcher; }
    bool isLogged() const { return static_cast<bool>(m_options.log); }
    void log(unsigned int panel, const std::string& line) const;
    void complain(unsigned int panel, const std::string& line) const;

    // For BusPanel. A model begins with the flash memory that was set for it, or else that
    // of the panel before it.
    PanelModel makeModel(unsigned int panel);
    void enter(BusPanel& panel);
    void leave(BusPanel& panel);

    // A panel is on its way off the bus.
    void tellUnplug(unsigned int panel) const;

    // For a panel that is being plugged in. Where nobody knows the address that the host
    // gives it, the link gets one on bus 1 that no panel had lately.
    LinkTap tapLink(std::optional<LinkTap::Address> address = std::nullopt);

private:
    BusPanel* findLast(unsigned int panel) const;
    bool isPlugged(unsigned int panel) const;

    const PanelBus::Options m_options;
    const PanelModel::Clock m_clock;
    std::vector<BusPanel*> m_panels;                   // the last of a number is the one that was plugged in last
    std::map<unsigned int, BootLoader::Flash> m_flash; // for panels to come
    std::vector<std::string> m_pastViolations;         // of panels that are no more
    std::multimap<std::chrono::nanoseconds, TimedOrder> m_orders; // by when they are due
    std::uint32_t m_plugs = 0;
};

} // namespace Vantor
