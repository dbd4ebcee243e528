#pragma once

#include "panel2mqtt/desk/Desk.h"
#include "panel2mqtt/panels/PanelEvents.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace Vantor {

// Which panel is at which place, and the desk's news of it.
//
// Threads: the desk's. Lifetime: the manager and the desk outlive it.
class PanelRoster {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Say = std::function<void(const std::string& text)>;

    PanelRoster(UsbManager& manager, Desk& desk, Say say) : m_manager(manager), m_desk(desk), m_say(std::move(say)) {}

    void handle(PanelEvents::Batch batch, TimePoint now);

    // What the library counts of the panel there, beside the desk's counts, as JSON.
    static std::string writeStatistics(UsbManager& manager, const std::string& host, const std::string& place,
                                       const PanelDesk::Counts& counts);

    std::size_t getPanels() const { return m_panels.size(); }

    // "1-4.2": bus 1, port 2 of what is plugged into port 4.
    static std::string placeOf(UsbDevice& device);

private:
    struct Panel {
        std::string place;
        bool isReady = false;
    };

    void add(std::uint16_t uid, TimePoint now);
    void remove(std::uint16_t uid, TimePoint now);
    void receive(PanelEvents::Event event, TimePoint now);
    void makeReady(Panel& panel, const std::shared_ptr<UsbDevice>& device, TimePoint now);

    UsbManager& m_manager;
    Desk& m_desk;
    const Say m_say;
    std::map<std::uint16_t, Panel> m_panels; // by uid
};

} // namespace Vantor
