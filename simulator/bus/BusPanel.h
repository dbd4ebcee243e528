#pragma once

#include "simulator/panel/PanelModel.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace Vantor {

class PanelRack;

// A panel on some bus: its PanelModel, and the log of what happens to it. In the rack from
// beginning to end; what outlives it goes to the rack then.
//
// Whatever is done to the model goes through `act`, so that no completion lies about.
//
// Threads: one at a time. Lifetime: the rack must outlive it.
class BusPanel {
public:
    virtual ~BusPanel();
    BusPanel(const BusPanel&) = delete;
    BusPanel& operator=(const BusPanel&) = delete;

    unsigned int getNumber() const { return m_number; }
    const PanelModel& getModel() const { return m_model; }
    virtual bool isPlugged() const = 0;

    // Does it to the model, and hands on what has come of it.
    void act(const std::function<void(PanelModel&)>& action);

    // Hands on what time alone has completed.
    void settle();

    BootLoader::Flash takeFlash() { return m_model.takeFlash(); }

protected:
    BusPanel(PanelRack& rack, unsigned int number);

    void log(const std::string& line) const;

    // PanelRack::getNextTime, which whatever happens to a panel may have moved.
    std::optional<std::chrono::nanoseconds> getNextTimeOfBus() const;

    // For those that serve the host's requests, within `act`.
    PanelModel& servedModel() { return m_model; }

private:
    // To the host, by the bus.
    virtual void handOn(PanelModel& model) = 0;

    PanelRack& m_rack;
    const unsigned int m_number;
    PanelModel m_model;
    std::size_t m_loggedViolations = 0;
};

} // namespace Vantor
