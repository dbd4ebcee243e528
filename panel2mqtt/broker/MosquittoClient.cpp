#include "panel2mqtt/broker/MosquittoClient.h"

#include "panel2mqtt/broker/MessageProperties.h"
#include "panel2mqtt/broker/PublishWindow.h"
#include "panel2mqtt/broker/TlsContext.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Vantor {

namespace {

constexpr std::size_t maxComplaints = 1024;
constexpr std::size_t maxPayload = 268435455; // MQTT's own

MosquittoClient& clientOf(void* self)
{
    return *static_cast<MosquittoClient*>(self);
}

// libmosquitto's first initialisation is not safe against another.
void initialiseLibrary()
{
    static const int initialised = mosquitto_lib_init();
    if (initialised != MOSQ_ERR_SUCCESS)
        throw std::runtime_error("libmosquitto can't be used");
}

mosquitto* makeClient(const std::string& id, void* self)
{
    initialiseLibrary();
    mosquitto* const client = mosquitto_new(id.c_str(), true, self);
    if (client == nullptr)
        throw std::runtime_error("no client can have the id '" + id + "'");
    return client;
}

void require(int code, const char* what)
{
    if (code != MOSQ_ERR_SUCCESS)
        throw std::runtime_error(std::string(what) + ": " + mosquitto_strerror(code));
}

// Until the other side closes it.
void drain(int socket, std::chrono::milliseconds patience)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + patience;
    std::array<char, 65536> ignored;
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
        pollfd entry = {socket, POLLIN, 0};
        if (left.count() <= 0 || poll(&entry, 1, static_cast<int>(left.count())) <= 0)
            return;
        const ssize_t count = recv(socket, ignored.data(), ignored.size(), MSG_DONTWAIT);
        if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR))
            return;
    }
}

} // namespace

MosquittoClient::MosquittoClient(const std::string& id, Events& events)
    : m_events(events), m_client(makeClient(id, this))
{
    mosquitto_int_option(m_client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    // Without it a confirmed round trip takes 44 ms.
    mosquitto_int_option(m_client, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_int_option(m_client, MOSQ_OPT_SEND_MAXIMUM, static_cast<int>(PublishWindow::maxMessages));
    setCallbacks();
}

MosquittoClient::~MosquittoClient()
{
    mosquitto_destroy(m_client);
}

void MosquittoClient::setCallbacks()
{
    mosquitto_connect_v5_callback_set(m_client, onConnect);
    mosquitto_subscribe_v5_callback_set(m_client, onSubscribe);
    mosquitto_publish_v5_callback_set(m_client, onPublish);
    mosquitto_message_v5_callback_set(m_client, onMessage);
    mosquitto_disconnect_v5_callback_set(m_client, onDisconnect);
    mosquitto_log_callback_set(m_client, onLog);
}

void MosquittoClient::setWill(const Message& will)
{
    MessageProperties properties(will);
    if (!properties.areGood() || will.payload.size() > UINT16_MAX)
        throw std::runtime_error("the last will is no message of MQTT");
    require(mosquitto_will_set_v5(m_client, will.topic.c_str(), static_cast<int>(will.payload.size()),
                                  will.payload.data(), will.qos, will.isRetained, properties.get()),
            "the last will");
    properties.release();
}

void MosquittoClient::logIn(const std::string& user, const std::string& password)
{
    require(mosquitto_username_pw_set(m_client, user.c_str(), password.empty() ? nullptr : password.c_str()),
            "the user name or password");
}

void MosquittoClient::secure(const TlsContext& context)
{
    require(mosquitto_int_option(m_client, MOSQ_OPT_SSL_CTX_WITH_DEFAULTS, 0), "TLS");
    require(mosquitto_void_option(m_client, MOSQ_OPT_SSL_CTX, context.get()), "TLS");
}

int MosquittoClient::connect(const std::string& address, std::uint16_t port, int keepAlive)
{
    // Only the connecting that blocks takes properties. It keeps them and then refuses the
    // keepalive, without having connected; the other one uses them.
    MessageProperties properties;
    properties.addInteger(MQTT_PROP_MAXIMUM_PACKET_SIZE, maxPacketSize);
    constexpr int refusedKeepAlive = 1;
    if (mosquitto_connect_bind_v5(m_client, address.c_str(), port, refusedKeepAlive, nullptr, properties.get()) !=
        MOSQ_ERR_INVAL)
        return MOSQ_ERR_NOT_SUPPORTED;
    return mosquitto_connect_async(m_client, address.c_str(), port, std::clamp(keepAlive, 5, UINT16_MAX));
}

int MosquittoClient::read()
{
    return mosquitto_loop_read(m_client, 1);
}

int MosquittoClient::write()
{
    return mosquitto_loop_write(m_client, 1);
}

int MosquittoClient::keepAlive()
{
    return mosquitto_loop_misc(m_client);
}

int MosquittoClient::subscribe(const BrokerLink::Subscription& subscription, int& id)
{
    int options = MQTT_SUB_OPT_RETAIN_AS_PUBLISHED;
    if (subscription.leavesOutRetained)
        options |= MQTT_SUB_OPT_SEND_RETAIN_NEVER;
    if (subscription.leavesOutOwn)
        options |= MQTT_SUB_OPT_NO_LOCAL;
    return mosquitto_subscribe_v5(m_client, &id, subscription.filter.c_str(), subscription.qos, options, nullptr);
}

int MosquittoClient::publish(const Message& message, int& id)
{
    const MessageProperties properties(message);
    if (!properties.areGood() || message.topic.find('\0') != std::string::npos || message.topic.size() > UINT16_MAX)
        return MOSQ_ERR_INVAL;
    if (message.payload.size() > maxPayload)
        return MOSQ_ERR_PAYLOAD_SIZE;
    return mosquitto_publish_v5(m_client, &id, message.topic.c_str(), static_cast<int>(message.payload.size()),
                                message.payload.data(), std::min(message.qos, m_maxQos), message.isRetained,
                                properties.get());
}

void MosquittoClient::disconnect(int patienceMilliseconds)
{
    const int kept = fcntl(getSocket(), F_DUPFD_CLOEXEC, 0);
    mosquitto_disconnect_v5(m_client, MQTT_RC_NORMAL_DISCONNECTION, nullptr);
    if (kept < 0)
        return;
    if (getSocket() < 0) { // written, not only queued
        shutdown(kept, SHUT_WR);
        drain(kept, std::chrono::milliseconds(patienceMilliseconds));
    }
    close(kept);
}

int MosquittoClient::getSocket() const
{
    return mosquitto_socket(m_client);
}

bool MosquittoClient::wantsToWrite() const
{
    return mosquitto_want_write(m_client);
}

void MosquittoClient::onConnect(mosquitto*, void* self, int code, int, const mosquitto_property* properties) noexcept
{
    std::uint32_t largest = UINT32_MAX;
    mosquitto_property_read_int32(properties, MQTT_PROP_MAXIMUM_PACKET_SIZE, &largest, false);
    std::uint8_t maxQos = 2;
    mosquitto_property_read_byte(properties, MQTT_PROP_MAXIMUM_QOS, &maxQos, false);
    clientOf(self).m_maxQos = maxQos;
    clientOf(self).m_events.onAnswered(code, largest);
}

void MosquittoClient::onSubscribe(mosquitto*, void* self, int id, int count, const int* codes,
                                  const mosquitto_property*) noexcept
{
    clientOf(self).m_events.onSubscribed(id, count > 0 ? codes[0] : MQTT_RC_UNSPECIFIED);
}

void MosquittoClient::onPublish(mosquitto*, void* self, int id, int code, const mosquitto_property*) noexcept
{
    clientOf(self).m_events.onPublished(id, code);
}

void MosquittoClient::onMessage(mosquitto*, void* self, const mosquitto_message* received,
                                const mosquitto_property* properties) noexcept
{
    Message message;
    message.topic = received->topic;
    if (received->payload != nullptr)
        message.payload.assign(static_cast<const char*>(received->payload),
                               static_cast<std::size_t>(received->payloadlen));
    message.qos = received->qos;
    message.isRetained = received->retain;
    MessageProperties::read(properties, message);
    clientOf(self).m_events.onReceived(std::move(message));
}

void MosquittoClient::onDisconnect(mosquitto*, void* self, int code, const mosquitto_property*) noexcept
{
    clientOf(self).m_events.onEnded(code);
}

void MosquittoClient::onLog(mosquitto*, void* self, int level, const char* text) noexcept
{
    std::string& complaints = clientOf(self).m_complaints;
    if (level == MOSQ_LOG_ERR && complaints.size() < maxComplaints)
        complaints.append(text).append("\n");
}

} // namespace Vantor
