#include "panel2mqtt/BrokerTrial.h"

#include "libMorvaneHostUsb/ThreadAnnotations.h"
#include "panel2mqtt/broker/BrokerLink.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <random>
#include <utility>

namespace Vantor {

namespace {

class TrialListener : public BrokerLink::Listener {
public:
    TrialListener(std::string topic, std::string token) : m_topic(std::move(topic)), m_token(std::move(token)) {}

    Plan planConnection() override { return {{}, {{m_topic, 0, true, false}}}; }
    void onConnected(const std::vector<std::string>& /*refused*/) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isConnected = true;
        m_changed.notify_all();
    }
    void onDisconnected(const std::string& reason) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_reason = m_reason.value_or(reason);
        m_changed.notify_all();
    }
    void onMessage(Message message) override
    {
        if (message.payload != m_token)
            return;
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isHeard = true;
        m_changed.notify_all();
    }

    // Not analysed, as the next: a condition needs std::unique_lock, which carries no annotation.
    bool awaitConnection(std::chrono::milliseconds limit) MORVANE_NO_THREAD_SAFETY_ANALYSIS
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, limit, [this]() MORVANE_REQUIRES(m_mutex) { return m_isConnected || m_reason; });
        return m_isConnected && !m_reason;
    }
    bool awaitToken(std::chrono::milliseconds limit) MORVANE_NO_THREAD_SAFETY_ANALYSIS
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, limit, [this]() MORVANE_REQUIRES(m_mutex) { return m_isHeard || m_reason; });
        return m_isHeard;
    }
    std::optional<std::string> getReason() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_reason;
    }

private:
    const std::string m_topic;
    const std::string m_token;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isConnected MORVANE_GUARDED_BY(m_mutex) = false;
    bool m_isHeard MORVANE_GUARDED_BY(m_mutex) = false;
    std::optional<std::string> m_reason MORVANE_GUARDED_BY(m_mutex);
};

} // namespace

BrokerTrial BrokerTrial::run(const Settings& settings, std::chrono::milliseconds limit)
{
    Message told;
    told.topic = "panel/1/" + settings.host + "/told"; // gateways look for their own word there alone
    told.payload = "check " + std::to_string(std::random_device()());
    TrialListener listener(told.topic, told.payload);
    BrokerPace pace;
    pace.lookUpTime = limit;
    pace.connectTime = limit;
    BrokerLink link(settings.broker, settings.host, listener, pace);
    link.start();
    if (!listener.awaitConnection(3 * limit)) // of several addresses each takes its time
        return {Outcome::NotTaken, listener.getReason().value_or("there is no answer in time")};
    link.publish(BrokerLink::Kind::Answer, told);
    if (listener.awaitToken(limit))
        return {Outcome::Well, ""};
    if (const auto reason = listener.getReason())
        return {Outcome::NotTaken, *reason};
    return {Outcome::Unheard, ""};
}

} // namespace Vantor
