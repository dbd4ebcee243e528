#pragma once

#include "panel2mqtt/desk/DeskJson.h"
#include "panel2mqtt/desk/Message.h"
#include "panel2mqtt/desk/Outbox.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace Vantor {

// Whether this gateway is the one that serves its host, and what it says of that: birth, death
// and claim. Of two with one name the one that was there first stays, the other gives way.
//
// A gateway that comes waits until the broker has told what it retains, and, when somebody is
// there by that, a second more for an objection.
//
// Threads: the desk's. Lifetime: the outbox outlives it.
class HostPresence {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    enum class Stage {
        Away,   // no connection
        Asking, // not known yet
        Serving,
        Yielding, // another one serves: the connection is to be ended
        Renewing, // this connection's epoch is too small: the same
    };

    static constexpr std::chrono::seconds patience{1};

    // `since`: milliseconds since 1970, when this gateway was started.
    HostPresence(const std::string& host, std::string run, std::string version, std::uint64_t since, Outbox& outbox);

    // The last will of the connection that is about to be made. `clock`: milliseconds since
    // 1970, which may step: epochs only grow.
    Message planWill(std::uint64_t clock);
    std::uint64_t getEpoch() const { return m_epoch; }

    // The connection is being made: what the broker retains may come before onConnected.
    void beginConnection();
    void onConnected(TimePoint now);
    void onDisconnected() { m_stage = Stage::Away; }

    // True for a message of its own topics.
    bool receive(const Message& message, TimePoint now);

    // All that the broker retains has been told.
    void endTelling(TimePoint now);

    void poll(TimePoint now);
    TimePoint getNextDue() const;

    // An orderly end is told as the will would have it.
    void leave();

    Stage getStage() const { return m_stage; }

private:
    void serve();
    void publishState(bool isOnline);
    void publishClaim();
    void onForeignState(const Message& message);
    void onForeignClaim(const Message& message);
    HostClaim getClaim() const { return {m_run, m_since, m_stage == Stage::Serving}; }

    const std::string m_root;
    const std::string m_run;
    const std::string m_version;
    const std::uint64_t m_since;
    Outbox& m_outbox;
    Stage m_stage = Stage::Away;
    bool m_hasServed = false;    // before this connection, too, and nobody was before it
    bool m_isDisputed = false;   // somebody is there, by what the broker retains
    std::uint64_t m_epoch = 0;   // of the planned will, and so of the birth
    std::uint64_t m_highest = 0; // of others
    TimePoint m_decision = TimePoint::max();
};

} // namespace Vantor
