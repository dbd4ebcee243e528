#pragma once

#include "panel2mqtt/broker/BrokerSettings.h"
#include "panel2mqtt/desk/Message.h"

#include <chrono>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

struct mosquitto;
struct mosquitto_message;
struct mqtt5__property;

namespace Vantor {

// Another client of the broker, as a test is one: connected from construction on. It does
// something only while it is asked to.
//
// Threads: one.
class MqttPeer {
public:
    static constexpr std::chrono::milliseconds patience{40000};

    // Throws std::runtime_error when the broker does not take it.
    explicit MqttPeer(const BrokerSettings& settings);
    ~MqttPeer();
    MqttPeer(const MqttPeer&) = delete;
    MqttPeer& operator=(const MqttPeer&) = delete;

    // Until it is granted. The retain flag comes as it was published.
    void subscribe(const std::string& filter, int qos = 1);

    // Until the broker has it, or that time is over. The reason code, 0 or 16 when all is well.
    int publish(const Message& message, std::chrono::milliseconds time = patience);

    // The next message that suits, which is taken, with those before it left; none: none came
    // in time.
    std::optional<Message> await(const std::function<bool(const Message&)>& suits,
                                 std::chrono::milliseconds time = patience);
    std::optional<Message> await(const std::string& topic, std::chrono::milliseconds time = patience);
    // All that comes in this time, and what had come.
    std::deque<Message> takeAll(std::chrono::milliseconds time);

private:
    static void onMessage(mosquitto*, void* self, const mosquitto_message* message, const mqtt5__property* properties);

    void pumpUntil(const std::function<bool()>& isDone, std::chrono::milliseconds time);

    mosquitto* const m_client;
    bool m_isConnected = false;
    int m_lastSubscribed = -1;
    int m_lastPublished = -1;
    int m_lastReason = 0;
    std::deque<Message> m_received;
};

} // namespace Vantor
