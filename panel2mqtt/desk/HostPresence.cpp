#include "panel2mqtt/desk/HostPresence.h"

#include <algorithm>
#include <utility>

namespace Vantor {

HostPresence::HostPresence(const std::string& host, std::string run, std::string version, std::uint64_t since,
                           Outbox& outbox)
    : m_root("panel/1/" + host + "/"), m_run(std::move(run)), m_version(std::move(version)), m_since(since),
      m_outbox(outbox)
{}

Message HostPresence::planWill(std::uint64_t clock)
{
    m_epoch = std::max({clock, m_epoch + 1, m_highest + 1});
    Message will;
    will.topic = m_root + "state";
    will.payload = DeskJson::write(HostState{false, m_epoch, m_run, m_version});
    will.qos = 1;
    will.isRetained = true;
    return will;
}

void HostPresence::beginConnection()
{
    m_isDisputed = false;
    m_decision = TimePoint::max();
    m_stage = Stage::Asking;
}

void HostPresence::onConnected(TimePoint /*now*/)
{
    if (m_stage == Stage::Away)
        beginConnection();
    // After an outage whoever has served goes on at once: others hear it before they decide.
    if (m_stage == Stage::Asking && m_hasServed)
        serve();
}

bool HostPresence::receive(const Message& message, TimePoint now)
{
    if (message.topic == m_root + "state")
        onForeignState(message);
    else if (message.topic == m_root + "claim")
        onForeignClaim(message);
    else
        return false;
    poll(now);
    return true;
}

// Its own are not told to it, but for those of earlier connections.
void HostPresence::onForeignState(const Message& message)
{
    if (m_stage != Stage::Asking && m_stage != Stage::Serving)
        return;
    const auto state = DeskJson::readHostState(message.payload);
    const bool isRival = state && state->isOnline && state->run != m_run;
    if (isRival && m_stage == Stage::Serving)
        publishClaim();
    if (state && (state->epoch > m_epoch || (state->epoch == m_epoch && state->run != m_run))) {
        // It counts for more than this birth, or would, come late, for more than this death.
        m_highest = std::max(m_highest, state->epoch);
        m_stage = Stage::Renewing;
    } else if (m_stage == Stage::Asking) {
        m_isDisputed = isRival;
    } else if (!state || !state->isOnline || isRival) {
        publishState(true); // it is what the broker retains now
    }
}

void HostPresence::onForeignClaim(const Message& message)
{
    const auto claim = DeskJson::readHostClaim(message.payload);
    if (!claim || claim->run == m_run || (m_stage != Stage::Asking && m_stage != Stage::Serving))
        return;
    if (!claim->isBefore(getClaim())) {
        publishClaim();
        return;
    }
    m_stage = Stage::Yielding;
    m_hasServed = false; // it asks when it comes back
}

void HostPresence::endTelling(TimePoint now)
{
    if (m_stage != Stage::Asking)
        return;
    if (!m_isDisputed) {
        serve();
        return;
    }
    publishClaim();
    m_decision = now + patience;
}

void HostPresence::poll(TimePoint now)
{
    if (m_stage == Stage::Asking && m_decision <= now)
        serve();
}

HostPresence::TimePoint HostPresence::getNextDue() const
{
    return m_stage == Stage::Asking ? m_decision : TimePoint::max();
}

void HostPresence::serve()
{
    m_stage = Stage::Serving;
    m_hasServed = true;
    publishClaim();
    publishState(true);
}

void HostPresence::leave()
{
    if (m_stage == Stage::Serving)
        publishState(false);
    m_stage = Stage::Away;
}

void HostPresence::publishState(bool isOnline)
{
    Message state;
    state.topic = m_root + "state";
    state.payload = DeskJson::write(HostState{isOnline, m_epoch, m_run, m_version});
    state.qos = 1;
    state.isRetained = true;
    m_outbox.publish(Outbox::Kind::State, std::move(state));
}

void HostPresence::publishClaim()
{
    Message claim;
    claim.topic = m_root + "claim";
    claim.payload = DeskJson::write(getClaim());
    m_outbox.publish(Outbox::Kind::Answer, std::move(claim));
}

} // namespace Vantor
