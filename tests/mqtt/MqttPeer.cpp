#include "tests/mqtt/MqttPeer.h"

#include "tests/support/TemporaryFolder.h"

#include <cstdlib>
#include <stdexcept>

#include <mosquitto.h>
#include <mqtt_protocol.h>

namespace Vantor {

namespace {

mosquitto* makePeer(void* self)
{
    static const int initialised = mosquitto_lib_init();
    (void)initialised;
    return mosquitto_new(nullptr, true, self);
}

MqttPeer& requirePeer(void* self)
{
    return *static_cast<MqttPeer*>(self);
}

mosquitto_property* propertiesOf(const Message& message)
{
    mosquitto_property* list = nullptr;
    if (!message.responseTopic.empty())
        mosquitto_property_add_string(&list, MQTT_PROP_RESPONSE_TOPIC, message.responseTopic.c_str());
    if (message.correlation)
        mosquitto_property_add_binary(&list, MQTT_PROP_CORRELATION_DATA, message.correlation->data(),
                                      static_cast<std::uint16_t>(message.correlation->size()));
    if (message.expirySeconds)
        mosquitto_property_add_int32(&list, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, *message.expirySeconds);
    for (const auto& [name, value] : message.userProperties)
        mosquitto_property_add_string_pair(&list, MQTT_PROP_USER_PROPERTY, name.c_str(), value.c_str());
    return list;
}

std::string takeText(char* text)
{
    std::string copy = text == nullptr ? "" : text;
    std::free(text);
    return copy;
}

void readProperties(const mosquitto_property* list, Message& message)
{
    for (const mosquitto_property* at = list; at != nullptr; at = mosquitto_property_next(at)) {
        char* name = nullptr;
        char* value = nullptr;
        void* bytes = nullptr;
        std::uint16_t size = 0;
        std::uint32_t number = 0;
        switch (mosquitto_property_identifier(at)) {
        case MQTT_PROP_RESPONSE_TOPIC:
            mosquitto_property_read_string(at, MQTT_PROP_RESPONSE_TOPIC, &value, false);
            message.responseTopic = takeText(value);
            break;
        case MQTT_PROP_CORRELATION_DATA:
            mosquitto_property_read_binary(at, MQTT_PROP_CORRELATION_DATA, &bytes, &size, false);
            message.correlation = std::string(static_cast<const char*>(bytes), size);
            std::free(bytes);
            break;
        case MQTT_PROP_MESSAGE_EXPIRY_INTERVAL:
            mosquitto_property_read_int32(at, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, &number, false);
            message.expirySeconds = number;
            break;
        case MQTT_PROP_USER_PROPERTY:
            mosquitto_property_read_string_pair(at, MQTT_PROP_USER_PROPERTY, &name, &value, false);
            message.userProperties.emplace_back(takeText(name), takeText(value));
            break;
        default:
            break;
        }
    }
}

} // namespace

MqttPeer::MqttPeer(const BrokerSettings& settings) : m_client(makePeer(this))
{
    mosquitto_int_option(m_client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(m_client, MOSQ_OPT_TCP_NODELAY, 1);
    if (!settings.user.empty()) {
        std::string password = contentOf(settings.passwordFile);
        password.resize(std::min(password.find('\n'), password.size()));
        mosquitto_username_pw_set(m_client, settings.user.c_str(), password.c_str());
    }
    const auto orNull = [](const std::string& text) { return text.empty() ? nullptr : text.c_str(); };
    if (settings.usesTls)
        mosquitto_tls_set(m_client, settings.authorityFile.c_str(), nullptr, orNull(settings.certificateFile),
                          orNull(settings.keyFile), nullptr);
    mosquitto_connect_v5_callback_set(m_client, [](mosquitto*, void* self, int code, int, const mosquitto_property*) {
        requirePeer(self).m_isConnected = code == 0;
    });
    mosquitto_subscribe_callback_set(
        m_client, [](mosquitto*, void* self, int id, int, const int*) { requirePeer(self).m_lastSubscribed = id; });
    mosquitto_publish_v5_callback_set(m_client,
                                      [](mosquitto*, void* self, int id, int code, const mosquitto_property*) {
                                          requirePeer(self).m_lastPublished = id;
                                          requirePeer(self).m_lastReason = code;
                                      });
    mosquitto_message_v5_callback_set(m_client, onMessage);
    const int code = mosquitto_connect(m_client, settings.address.c_str(), settings.port, 60);
    if (code == MOSQ_ERR_SUCCESS)
        pumpUntil([this] { return m_isConnected; }, patience);
    if (!m_isConnected) {
        mosquitto_destroy(m_client);
        throw std::runtime_error(std::string("the broker does not take the peer: ") + mosquitto_strerror(code));
    }
}

MqttPeer::~MqttPeer()
{
    mosquitto_disconnect(m_client);
    mosquitto_destroy(m_client);
}

void MqttPeer::subscribe(const std::string& filter, int qos)
{
    int id = 0;
    mosquitto_subscribe_v5(m_client, &id, filter.c_str(), qos, MQTT_SUB_OPT_RETAIN_AS_PUBLISHED, nullptr);
    pumpUntil([this, &id] { return m_lastSubscribed == id; }, patience);
}

int MqttPeer::publish(const Message& message, std::chrono::milliseconds time)
{
    mosquitto_property* properties = propertiesOf(message);
    int id = 0;
    const int code =
        mosquitto_publish_v5(m_client, &id, message.topic.c_str(), static_cast<int>(message.payload.size()),
                             message.payload.data(), message.qos, message.isRetained, properties);
    mosquitto_property_free_all(&properties);
    if (code != MOSQ_ERR_SUCCESS)
        throw std::runtime_error(std::string("the peer can't publish: ") + mosquitto_strerror(code));
    pumpUntil([this, &id] { return m_lastPublished == id; }, time);
    return m_lastReason;
}

std::optional<Message> MqttPeer::await(const std::function<bool(const Message&)>& suits, std::chrono::milliseconds time)
{
    std::optional<Message> found;
    pumpUntil(
        [&] {
            for (auto message = m_received.begin(); message != m_received.end() && !found; ++message) {
                if (suits(*message)) {
                    found = std::move(*message);
                    m_received.erase(message);
                    break;
                }
            }
            return found.has_value();
        },
        time);
    return found;
}

std::optional<Message> MqttPeer::await(const std::string& topic, std::chrono::milliseconds time)
{
    return await([&topic](const Message& message) { return message.topic == topic; }, time);
}

std::deque<Message> MqttPeer::takeAll(std::chrono::milliseconds time)
{
    pumpUntil([] { return false; }, time);
    return std::exchange(m_received, {});
}

void MqttPeer::onMessage(mosquitto*, void* self, const mosquitto_message* received,
                         const mosquitto_property* properties)
{
    Message message;
    message.topic = received->topic;
    if (received->payloadlen > 0)
        message.payload.assign(static_cast<const char*>(received->payload),
                               static_cast<std::size_t>(received->payloadlen));
    message.qos = received->qos;
    message.isRetained = received->retain;
    readProperties(properties, message);
    requirePeer(self).m_received.push_back(std::move(message));
}

void MqttPeer::pumpUntil(const std::function<bool()>& isDone, std::chrono::milliseconds time)
{
    const auto end = std::chrono::steady_clock::now() + time;
    while (!isDone() && std::chrono::steady_clock::now() < end) {
        if (mosquitto_loop(m_client, 10, 1) != MOSQ_ERR_SUCCESS && mosquitto_socket(m_client) < 0)
            mosquitto_reconnect(m_client);
    }
}

} // namespace Vantor
