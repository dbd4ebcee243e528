#include "panel2mqtt/BrokerTrial.h"

#include "panel2mqtt/broker/BrokerLink.h"

#include <algorithm>
#include <condition_variable>
#include <functional>
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
        change([this] { m_isConnected = true; });
    }
    void onDisconnected(const std::string& reason) override
    {
        change([&] { m_reason = m_reason.value_or(reason); });
    }
    void onMessage(Message message) override
    {
        if (message.payload == m_token)
            change([this] { m_isHeard = true; });
    }

    bool awaitConnection(std::chrono::milliseconds limit)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, limit, [this] { return m_isConnected || m_reason; });
        return m_isConnected && !m_reason;
    }
    bool awaitToken(std::chrono::milliseconds limit)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, limit, [this] { return m_isHeard || m_reason; });
        return m_isHeard;
    }
    std::optional<std::string> getReason() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_reason;
    }

private:
    void change(const std::function<void()>& news)
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            news();
        }
        m_changed.notify_all();
    }

    const std::string m_topic;
    const std::string m_token;
    mutable std::mutex m_mutex; // over all below
    std::condition_variable m_changed;
    bool m_isConnected = false;
    bool m_isHeard = false;
    std::optional<std::string> m_reason;
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
