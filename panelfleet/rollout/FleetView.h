#pragma once

#include "panel2mqtt/desk/DeskJson.h"
#include "panelfleet/rollout/Selection.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace Vantor {

// What is retained of hosts and their panels, as far as it is selected; what makes no sense
// is left out.
//
// Threads: one at a time. Pure.
class FleetView {
public:
    static constexpr std::size_t maxHosts = 16384;
    static constexpr std::size_t maxPanels = 131072;
    static constexpr std::size_t maxPayload = 4096;

    enum class Presence {
        There,
        Unsettled, // of an earlier connection of its gateway: about to be told anew, or cleared
        HostAway,
        PanelAway,
        NeverHeardOf,
    };

    struct Panel {
        std::optional<PlaceState> state;
        std::optional<PanelInfo> info;
        std::optional<JobState> job;

    private:
        friend class FleetView;
        std::uint64_t m_stateTelling = 0;
        std::uint64_t m_infoTelling = 0;
        std::uint64_t m_jobTelling = 0;
    };

    struct Host {
        std::optional<HostState> state;
        std::map<std::string, Panel> panels; // by place

    private:
        friend class FleetView;
        std::uint64_t m_telling = 0;
    };

    // Of jobs, those of this id.
    FleetView(Selection selection, std::string id);

    // All that is retained is told anew from here on; what was not told by the end is gone.
    void beginTelling();
    void endTelling();

    // Whether this was of a host that is selected, and taken.
    bool receive(const std::string& topic, const std::string& payload);

    const std::map<std::string, Host>& getHosts() const { return m_hosts; }
    const Host* findHost(const std::string& host) const;
    const Panel* findPanel(const std::string& host, const std::string& place) const;
    Presence getPresence(const std::string& host, const std::string& place) const;

    // What there was no room for, and what made no sense.
    std::uint64_t getLeftOut() const { return m_leftOut; }
    std::uint64_t getSenseless() const { return m_senseless; }

    static bool isPlace(const std::string& text);

private:
    bool receiveHost(const std::string& name, const std::string& payload);
    bool receivePanel(const std::string& host, const std::string& place, const std::string& kind,
                      const std::string& payload);
    void tellPanel(Panel& panel, const std::string& kind, const std::string& payload);
    Host* makeHost(const std::string& name);
    Panel* makePanel(const std::string& host, const std::string& place);
    void dropEmpty();

    const Selection m_selection;
    const std::string m_id;
    std::map<std::string, Host> m_hosts;
    std::size_t m_panels = 0;
    std::uint64_t m_telling = 0;
    std::uint64_t m_leftOut = 0;
    std::uint64_t m_senseless = 0;
};

} // namespace Vantor
