#include "panel2mqtt/broker/MessageProperties.h"

#include <cstdlib>
#include <limits>
#include <memory>
#include <utility>

#include <mosquitto.h>
#include <mqtt_protocol.h>

namespace Vantor {

namespace {

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};
using OwnedText = std::unique_ptr<char, FreeMemory>;
using OwnedBytes = std::unique_ptr<void, FreeMemory>;

constexpr std::size_t maxText = std::numeric_limits<std::uint16_t>::max();

// libmosquitto takes texts as C strings.
bool isText(const std::string& text)
{
    return text.size() <= maxText && text.find('\0') == std::string::npos;
}

std::string textOf(const OwnedText& text)
{
    return text == nullptr ? std::string() : std::string(text.get());
}

void readUserProperties(const mosquitto_property* list, Message& message)
{
    char* name = nullptr;
    char* value = nullptr;
    const mosquitto_property* at =
        mosquitto_property_read_string_pair(list, MQTT_PROP_USER_PROPERTY, &name, &value, false);
    while (at != nullptr) {
        const OwnedText ownedName(std::exchange(name, nullptr));
        const OwnedText ownedValue(std::exchange(value, nullptr));
        message.userProperties.emplace_back(textOf(ownedName), textOf(ownedValue));
        at = mosquitto_property_read_string_pair(at, MQTT_PROP_USER_PROPERTY, &name, &value, true);
    }
}

} // namespace

MessageProperties::MessageProperties(const Message& message)
{
    if (message.expirySeconds)
        addInteger(MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, *message.expirySeconds);
    if (!message.responseTopic.empty())
        addText(MQTT_PROP_RESPONSE_TOPIC, message.responseTopic);
    if (message.correlation) {
        m_areGood =
            m_areGood && message.correlation->size() <= maxText &&
            mosquitto_property_add_binary(&m_list, MQTT_PROP_CORRELATION_DATA, message.correlation->data(),
                                          static_cast<std::uint16_t>(message.correlation->size())) == MOSQ_ERR_SUCCESS;
    }
    for (const auto& [name, value] : message.userProperties)
        addPair(name, value);
}

MessageProperties::~MessageProperties()
{
    mosquitto_property_free_all(&m_list);
}

void MessageProperties::addInteger(int identifier, std::uint32_t value)
{
    m_areGood = mosquitto_property_add_int32(&m_list, identifier, value) == MOSQ_ERR_SUCCESS && m_areGood;
}

void MessageProperties::addText(int identifier, const std::string& text)
{
    m_areGood = m_areGood && isText(text) &&
                mosquitto_property_add_string(&m_list, identifier, text.c_str()) == MOSQ_ERR_SUCCESS;
}

void MessageProperties::addPair(const std::string& name, const std::string& value)
{
    m_areGood = m_areGood && isText(name) && isText(value) &&
                mosquitto_property_add_string_pair(&m_list, MQTT_PROP_USER_PROPERTY, name.c_str(), value.c_str()) ==
                    MOSQ_ERR_SUCCESS;
}

mosquitto_property* MessageProperties::release()
{
    return std::exchange(m_list, nullptr);
}

void MessageProperties::read(const mosquitto_property* list, Message& message)
{
    char* text = nullptr;
    if (mosquitto_property_read_string(list, MQTT_PROP_RESPONSE_TOPIC, &text, false) != nullptr)
        message.responseTopic = textOf(OwnedText(text));
    void* bytes = nullptr;
    std::uint16_t size = 0;
    if (mosquitto_property_read_binary(list, MQTT_PROP_CORRELATION_DATA, &bytes, &size, false) != nullptr) {
        const OwnedBytes owned(bytes);
        message.correlation = std::string(static_cast<const char*>(owned.get()), size);
    }
    std::uint32_t seconds = 0;
    if (mosquitto_property_read_int32(list, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, &seconds, false) != nullptr)
        message.expirySeconds = seconds;
    readUserProperties(list, message);
}

} // namespace Vantor
