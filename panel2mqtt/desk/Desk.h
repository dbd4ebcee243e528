#pragma once

#include "panel2mqtt/desk/DeskJson.h"
#include "panel2mqtt/desk/FirmwareShelf.h"
#include "panel2mqtt/desk/FlashDesk.h"
#include "panel2mqtt/desk/Message.h"
#include "panel2mqtt/desk/Order.h"
#include "panel2mqtt/desk/Outbox.h"
#include "panel2mqtt/desk/PanelDesk.h"
#include "panel2mqtt/desk/PanelLine.h"
#include "panel2mqtt/desk/WishBook.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace Vantor {

// All that the gateway does with messages and panels: places come and go, commands find their
// panel, wishes are kept true, what panels send goes out. docs/mqtt.md is its contract.
//
// Threads: one, and no lock: what comes from others is handed over first.
// Lifetime: the outbox outlives it.
class Desk {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::steady_clock::duration;

    static constexpr std::size_t mostPlaces = 1024;
    static constexpr std::size_t mostLeftOver = 4096;

    struct Options {
        std::string host;
        std::string run;
        std::optional<std::set<unsigned int>> got; // types that are published; without it all but 0
        int gotQos = 0;
        Duration statsEvery = std::chrono::minutes(1); // zero: never
        Duration forgetAfter = std::chrono::hours(24);
        Duration wait = std::chrono::minutes(1);
        std::function<std::string()> clock;               // the time of day, as it is told
        std::function<void(const std::string&)> complain; // of what nobody may have asked to be told; may be empty
        std::function<void(bool isWrong, const std::string&)> say; // how upgrades begin and end; may be empty
        FirmwareShelf* shelf = nullptr;                            // null: no firmware upgrades
    };

    // What a place's counts say, or with an empty one the gateway's, as JSON; asked when they are
    // to be published. `counts`: the desk's own of that place.
    using Statistics = std::function<std::string(const std::string& place, const PanelDesk::Counts& counts)>;

    Desk(Options options, Outbox& outbox, Statistics statistics);

    // A connection has come: the broker tells what it retains.
    void beginConnection();
    // All of that has been told.
    void endTelling(TimePoint now);
    // The host is this gateway's, over this connection; before that nothing is published, and
    // nothing obeyed.
    void serve(std::uint64_t epoch, TimePoint now);
    // The gateway ends, and nobody serves the panels any more.
    void leave();

    // Below this host's topics, or everybody's.
    void receive(const Message& message, TimePoint now);

    // A command for which there was no room: from any thread, as it touches nothing.
    void refuseBusy(const Message& command) const;

    void onPanelReady(const std::string& place, std::shared_ptr<PanelLine> line, const PanelInfo& info, TimePoint now);
    void onPanelAway(const std::string& place, const std::string& reason, TimePoint now);
    void onRecord(const std::string& place, unsigned int type, std::string payload);
    // The panel may have taken something.
    void onProgress(const std::string& place, TimePoint now);

    void poll(TimePoint now);
    TimePoint getNextDue() const;

private:
    struct Place {
        std::unique_ptr<PanelDesk> desk;
        std::unique_ptr<FlashDesk> flash;
        PlaceState state;
        std::string info;                       // JSON; empty: not known
        TimePoint forgotten = TimePoint::max(); // when, unless it comes back
        std::uint64_t records = 0;              // received
    };

    void obey(const Order& order, const Message& message, TimePoint now);
    void obeyAt(const std::string& place, const Order& order, const Message& message, TimePoint now);
    void flash(const std::string& place, const Message& message, TimePoint now);
    bool publishJob(const std::string& place, const std::string& id, const std::string& payload) const;
    void sayJob(const std::string& place, const std::string& id, const JobState& job) const;
    void rememberJob(const std::string& place, const std::string& id, const std::string& payload, TimePoint now);
    void wish(const Order& order, const Message& message, TimePoint now);
    void settle(TimePoint now);
    void remember(const std::string& place, const Message& state, TimePoint now);
    void forget(const std::string& place);
    Place* makePlace(const std::string& place);
    Place* makeRoomFor(const std::string& place);
    void publishPlace(const std::string& name, const Place& place);
    void publishStats(const std::string& place, const Message* question);
    void reply(const Message& command, const Answer& answer, const std::string& place) const;
    std::optional<std::string> answerTopicOf(const Message& command) const;
    std::string topicOf(const std::string& rest) const { return m_root + rest; }

    const Options m_options;
    const std::string m_root; // "panel/1/HOST/"
    Outbox& m_outbox;
    const Statistics m_statistics;
    std::uint64_t m_epoch = 0;
    WishBook m_wishes;
    bool m_isServing = false;
    bool m_isTold = false;     // the wishes are complete
    bool m_hasSettled = false; // over an earlier connection, too: then they hold in an outage as well
    std::map<std::string, Place> m_places;
    std::map<std::string, std::string> m_leftOver; // retained topics of an earlier run, and their places
    TimePoint m_nextStats = TimePoint::max();
    std::optional<FlashOrder::Result> m_flashOrder; // read once, when it is for several panels
};

} // namespace Vantor
