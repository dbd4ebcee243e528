#pragma once

#include "simulator/bus/BusScript.h"
#include "simulator/replay/PanelPlayer.h"
#include "simulator/replay/RecordedSession.h"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Vantor {

// Plays the panels' side of a session: each panel presents itself as in the capture, says
// what PanelPlayer lets it say, leaves and comes back.
//
// A panel that was there before the host's first transfer is there from the beginning.
// Another is plugged in as long after that transfer as in the capture, and one that comes
// back as long after it has left; played fast, at once.
//
// Threads: those of the bus. Lifetime: outlives the bus.
class Replay : public BusScript {
public:
    // Hears of what was not waited for, with the panel's number.
    using Tell = std::function<void(const std::string&)>;

    Replay(const RecordedSession& session, bool isFast, std::set<PacketType> ignored, Tell tell);

    // To be plugged in before anything else.
    std::vector<unsigned int> getFirstPanels() const;

    void prepare(unsigned int panel, PanelModel::Options& options) override;
    std::optional<PanelOrder> takeDue(std::chrono::nanoseconds now) override;
    std::optional<std::chrono::nanoseconds> getNextTime() const override;

    // What was not played, or was asked for and is not there, a line for each panel.
    std::vector<std::string> describeRest() const;

private:
    struct Panel {
        const RecordedSession::Panel* recorded;
        std::vector<std::shared_ptr<PanelPlayer>> players; // of the lives so far
        std::size_t ordered = 0;                           // lives
    };

    std::optional<std::chrono::nanoseconds> findPlugTime(const Panel& panel) const;

    const RecordedSession& m_session;
    ReplayPace m_pace;
    const Tell m_tell;
    const RecordedSession::Life m_nothing; // of a panel that is plugged in by command
    std::vector<Panel> m_panels;
};

} // namespace Vantor
