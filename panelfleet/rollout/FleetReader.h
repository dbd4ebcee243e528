#pragma once

#include "panelfleet/rollout/FleetView.h"

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace Vantor {

// How all that is retained is read: first the hosts, then the topics of some hosts at a time,
// each time up to a message of its own that comes back behind them. All at once would be more
// than a broker lets a client be behind.
//
// Threads: one at a time. Pure.
class FleetReader {
public:
    static constexpr std::size_t hostsAtATime = 32;

    struct Step {
        std::vector<std::string> filters; // to be subscribed to, with QoS 0
        std::string marker;               // then to be published to `markerTopic`; empty: nothing
    };

    static constexpr const char* markerTopic = "panel/1/all/told";

    // `rests` are what is read of each host: "+/state". `run` is another one for each program.
    FleetReader(FleetView& view, std::vector<std::string> rests, std::string run);

    // A new connection, subscribed to `panel/1/+/state` and the marker's topic; the view has
    // begun its telling when that was.
    Step begin();
    // It is over.
    void end();

    // Nothing to do: an empty step.
    Step receive(const std::string& topic, const std::string& payload);

    // All has been told, and since then what changes.
    bool isComplete() const { return m_isComplete; }

private:
    Step readOn();
    void addFilters(const std::string& host, Step& step) const;

    FleetView& m_view;
    const std::vector<std::string> m_rests;
    const std::string m_run;
    std::set<std::string> m_read; // hosts whose topics are subscribed to
    std::string m_marker;         // that is awaited
    std::uint64_t m_markers = 0;
    bool m_isComplete = false;
};

} // namespace Vantor
