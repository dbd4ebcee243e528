#pragma once

#include "tests/mqtt/RecordingListener.h"

#include <chrono>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Vantor {

// A message of a topic and a payload.
inline Message messageOf(const std::string& topic, const std::string& payload, int qos = 1)
{
    Message message;
    message.topic = topic;
    message.payload = payload;
    message.qos = qos;
    return message;
}

// A link that has no patience, with its listener; started at construction.
class QuickLink {
public:
    using Kind = BrokerLink::Kind;

    static BrokerPace getPace()
    {
        using std::chrono::milliseconds;
        BrokerPace pace;
        pace.firstDelay = milliseconds(20);
        pace.lastDelay = milliseconds(80);
        pace.steadyTime = milliseconds(500);
        pace.lookUpTime = milliseconds(1500);
        pace.connectTime = milliseconds(700);
        return pace;
    }

    explicit QuickLink(const BrokerSettings& settings, std::vector<BrokerLink::Subscription> subscriptions = {},
                       const BrokerPace& pace = getPace(), std::string echoTopic = {})
        : listener(std::move(subscriptions), std::move(echoTopic)), link(settings, "host", listener, pace)
    {
        link.start();
    }

    void publish(Kind kind, const std::string& topic, const std::string& payload, int qos = 1)
    {
        link.publish(kind, messageOf(topic, payload, qos));
    }

    bool awaitCounts(const std::function<bool(const BrokerLink::Counts&)>& isSo) const
    {
        for (int tries = 0; tries < 1000; ++tries) {
            if (isSo(link.getCounts()))
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    RecordingListener listener;
    BrokerLink link;
};

} // namespace Vantor
