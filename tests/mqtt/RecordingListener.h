#pragma once

#include "panel2mqtt/broker/BrokerLink.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace Vantor {

// What a link tells, kept. Its last will is `will`, with the number of the plan as payload,
// from 1 on.
//
// Threads: any.
class RecordingListener : public BrokerLink::Listener {
public:
    struct Told {
        std::size_t plans = 0;
        std::vector<std::vector<std::string>> connected; // the refused filters of each
        std::vector<std::string> disconnected;           // the reasons
        std::vector<Message> messages;
        std::vector<std::string> refused; // "topic: reason"
    };

    explicit RecordingListener(std::vector<BrokerLink::Subscription> subscriptions = {}, std::string echoTopic = {})
        : m_subscriptions(std::move(subscriptions)), m_echoTopic(std::move(echoTopic))
    {}

    Plan planConnection() override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_told.plans;
        Message will;
        will.topic = "will";
        will.payload = std::to_string(m_told.plans);
        will.qos = 1;
        will.isRetained = true;
        return {will, m_subscriptions, m_echoTopic};
    }
    void onConnected(const std::vector<std::string>& refused) override
    {
        add([&] { m_told.connected.push_back(refused); });
    }
    void onDisconnected(const std::string& reason) override
    {
        add([&] { m_told.disconnected.push_back(reason); });
    }
    void onMessage(Message message) override
    {
        add([&] { m_told.messages.push_back(std::move(message)); });
    }
    void onRefused(const std::string& topic, const std::string& reason) override
    {
        add([&] { m_told.refused.push_back(topic + ": " + reason); });
    }

    // False: it did not come to that.
    bool await(const std::function<bool(const Told&)>& isSo, std::chrono::milliseconds time = std::chrono::seconds(40))
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, time, [&] { return isSo(m_told); });
    }
    bool awaitConnections(std::size_t count)
    {
        return await([count](const Told& told) { return told.connected.size() >= count; });
    }
    bool awaitReasons(std::size_t count)
    {
        return await([count](const Told& told) { return told.disconnected.size() >= count; });
    }
    bool awaitReason(const std::string& part)
    {
        return await([&part](const Told& told) {
            return !told.disconnected.empty() && told.disconnected.back().find(part) != std::string::npos;
        });
    }
    Told get() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_told;
    }

private:
    void add(const std::function<void()>& change)
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            change();
        }
        m_changed.notify_all();
    }

    const std::vector<BrokerLink::Subscription> m_subscriptions;
    const std::string m_echoTopic;
    mutable std::mutex m_mutex; // over all below
    std::condition_variable m_changed;
    Told m_told;
};

} // namespace Vantor
