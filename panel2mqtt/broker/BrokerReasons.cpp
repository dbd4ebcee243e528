#include "panel2mqtt/broker/BrokerReasons.h"

#include <cerrno>
#include <system_error>

#include <mosquitto.h>
#include <mqtt_protocol.h>

namespace Vantor {

namespace {

constexpr char noTls[] = "the broker does not speak TLS on this port, or ended the connection in the middle of it";

bool hasText(const std::string& text, const char* part)
{
    return text.find(part) != std::string::npos;
}

std::string credentialsOf(const BrokerSettings& settings)
{
    if (settings.user.empty())
        return settings.certificateFile.empty() ? "it wants a user name and password, or a certificate"
                                                : "what it is sent is the certificate in " + settings.certificateFile;
    const std::string user = "what it is sent is the user name '" + settings.user + "'";
    return settings.passwordFile.empty() ? user + " without a password"
                                         : user + " and the password in " + settings.passwordFile;
}

std::string describeTls(const std::string& complaints, const BrokerSettings& settings)
{
    if (hasText(complaints, "wrong version number") || hasText(complaints, "unexpected eof") ||
        hasText(complaints, "packet length too long") || hasText(complaints, "http request"))
        return noTls;
    if (hasText(complaints, "certificate required"))
        return "the broker wants a certificate of this host";
    if (hasText(complaints, "unknown ca") || hasText(complaints, "bad certificate") ||
        hasText(complaints, "certificate expired") || hasText(complaints, "certificate unknown") ||
        hasText(complaints, "certificate revoked"))
        return settings.certificateFile.empty()
                   ? "the broker wants a certificate of this host"
                   : "the broker does not accept this host's certificate in " + settings.certificateFile;
    std::string oneLine = complaints.substr(0, complaints.find('\n'));
    return "TLS with the broker fails" + (oneLine.empty() ? std::string() : ": " + oneLine);
}

} // namespace

std::string describeRefusal(int reasonCode, const BrokerSettings& settings)
{
    switch (reasonCode) {
    case MQTT_RC_BAD_USERNAME_OR_PASSWORD:
        return "the broker refuses the user name or password: " + credentialsOf(settings);
    case MQTT_RC_NOT_AUTHORIZED:
        return "the broker refuses this host, or its password: " + credentialsOf(settings);
    case MQTT_RC_UNSUPPORTED_PROTOCOL_VERSION:
    case 1: // of a broker that only speaks older ones
        return "the broker does not speak MQTT 5";
    default:
        return std::string("the broker refuses the connection: ") + mosquitto_reason_string(reasonCode);
    }
}

std::string describeEnd(int code, int error)
{
    switch (code) {
    case MOSQ_ERR_SUCCESS:
    case MOSQ_ERR_CONN_LOST:
        return "the broker has ended the connection";
    case MOSQ_ERR_KEEPALIVE:
        return "the broker no longer answers";
    case MOSQ_ERR_ERRNO:
        return "the connection to the broker has failed: " + std::generic_category().message(error);
    case MQTT_RC_SERVER_SHUTTING_DOWN:
        return "the broker is shutting down";
    default:
        break;
    }
    if (code >= MQTT_RC_UNSPECIFIED)
        return std::string("the broker has ended the connection: ") + mosquitto_reason_string(code);
    return std::string("the connection to the broker has failed: ") + mosquitto_strerror(code);
}

std::string describeFailure(int code, int error, const std::string& complaints, const BrokerSettings& settings)
{
    if (settings.usesTls && (!complaints.empty() || code == MOSQ_ERR_TLS))
        return describeTls(complaints, settings);
    // It has said why, but what it says is lost to who was just writing.
    if (settings.usesTls && code == MOSQ_ERR_ERRNO && error == EPROTO)
        return "the broker ended the connection in the middle of TLS: " +
               (settings.certificateFile.empty() ? "it may want a certificate of this host"
                                                 : "it may not accept the certificate in " + settings.certificateFile);
    const char* const perhaps = settings.usesTls ? "" : ". It may expect TLS on this port";
    if (code == MOSQ_ERR_SUCCESS || code == MOSQ_ERR_CONN_LOST || (code == MOSQ_ERR_ERRNO && error == ECONNRESET))
        return settings.usesTls ? noTls : std::string("the broker ended the connection without an answer") + perhaps;
    if (code == MOSQ_ERR_PROTOCOL || code == MOSQ_ERR_MALFORMED_PACKET)
        return std::string("what answers is no broker of MQTT 5") + perhaps;
    return describeEnd(code, error);
}

std::string describeRefusedMessage(int reasonCode)
{
    switch (reasonCode) {
    case MQTT_RC_NOT_AUTHORIZED:
        return "the broker's access list does not let this host publish";
    case MQTT_RC_PACKET_TOO_LARGE:
    case MOSQ_ERR_OVERSIZE_PACKET:
    case MOSQ_ERR_PAYLOAD_SIZE:
        return "larger than the broker takes";
    default:
        break;
    }
    return reasonCode >= MQTT_RC_UNSPECIFIED ? mosquitto_reason_string(reasonCode) : mosquitto_strerror(reasonCode);
}

} // namespace Vantor
