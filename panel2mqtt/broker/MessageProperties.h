#pragma once

#include "panel2mqtt/desk/Message.h"

#include <cstdint>
#include <string>

#include <mosquitto.h>

namespace Vantor {

// The properties of a message as libmosquitto has them.
//
// Threads: one.
class MessageProperties {
public:
    MessageProperties() = default;
    // Those that the message has.
    explicit MessageProperties(const Message& message);
    ~MessageProperties();
    MessageProperties(const MessageProperties&) = delete;
    MessageProperties& operator=(const MessageProperties&) = delete;

    void addInteger(int identifier, std::uint32_t value);

    // False: one of them can't be in a message of MQTT.
    bool areGood() const { return m_areGood; }
    mosquitto_property* get() const { return m_list; }
    // To who frees them.
    mosquitto_property* release();

    // Into a message that has none yet.
    static void read(const mosquitto_property* list, Message& message);

private:
    void addText(int identifier, const std::string& text);
    void addPair(const std::string& name, const std::string& value);

    mosquitto_property* m_list = nullptr;
    bool m_areGood = true;
};

} // namespace Vantor
