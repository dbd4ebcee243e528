#include "benchmarks/mqtt/LightClient.h"

#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Vantor {

namespace {

constexpr std::uint8_t connectPacket = 0x10;
constexpr std::uint8_t connectAnswer = 0x20;
constexpr std::uint8_t publishPacket = 0x30;
constexpr std::uint8_t publishAnswer = 0x40;
constexpr std::uint8_t subscribePacket = 0x82;
constexpr std::uint8_t subscribeAnswer = 0x90;
constexpr std::uint8_t pingPacket = 0xC0;

constexpr std::uint8_t expiryProperty = 0x02;
constexpr std::uint8_t contentProperty = 0x03;
constexpr std::uint8_t responseProperty = 0x08;
constexpr std::uint8_t correlationProperty = 0x09;
constexpr std::uint8_t userProperty = 0x26;

void addShort(std::string& bytes, std::size_t value)
{
    bytes += static_cast<char>(value >> 8U & 0xFFU);
    bytes += static_cast<char>(value & 0xFFU);
}

void addText(std::string& bytes, std::string_view text)
{
    addShort(bytes, text.size());
    bytes += text;
}

void addLength(std::string& bytes, std::size_t value)
{
    do {
        const std::size_t low = value & 0x7FU;
        value >>= 7U;
        bytes += static_cast<char>(value == 0 ? low : low | 0x80U);
    } while (value != 0);
}

std::string propertiesOf(const Message& message)
{
    std::string list;
    if (message.expirySeconds) {
        list += static_cast<char>(expiryProperty);
        addShort(list, *message.expirySeconds >> 16U);
        addShort(list, *message.expirySeconds & 0xFFFFU);
    }
    if (!message.responseTopic.empty()) {
        list += static_cast<char>(responseProperty);
        addText(list, message.responseTopic);
    }
    if (message.correlation) {
        list += static_cast<char>(correlationProperty);
        addText(list, *message.correlation);
    }
    for (const auto& [name, value] : message.userProperties) {
        list += static_cast<char>(userProperty);
        addText(list, name);
        addText(list, value);
    }
    return list;
}

// What is left of a packet; what is not there is zero.
class Bytes {
public:
    explicit Bytes(std::string_view rest) : m_rest(rest) {}

    std::string_view take(std::size_t count)
    {
        const std::string_view taken = m_rest.substr(0, count);
        m_rest.remove_prefix(taken.size());
        return taken;
    }
    std::uint8_t takeByte()
    {
        const std::string_view byte = take(1);
        return byte.empty() ? std::uint8_t{0} : static_cast<std::uint8_t>(byte[0]);
    }
    std::size_t takeShort()
    {
        const std::size_t high = takeByte();
        return high << 8U | takeByte();
    }
    std::string_view takeText() { return take(takeShort()); }
    std::size_t takeLength()
    {
        std::size_t value = 0;
        for (unsigned int shift = 0; shift < 28; shift += 7) {
            const std::uint8_t byte = takeByte();
            value |= static_cast<std::size_t>(byte & 0x7FU) << shift;
            if ((byte & 0x80U) == 0)
                break;
        }
        return value;
    }
    bool isEmpty() const { return m_rest.empty(); }
    std::string_view getRest() const { return m_rest; }

private:
    std::string_view m_rest;
};

// Those that a broker adds by itself are skipped; an unknown one ends the reading.
void readProperties(Bytes list, Message& message)
{
    while (!list.isEmpty()) {
        switch (list.takeByte()) {
        case 0x01: // the payload's format
            list.take(1);
            break;
        case expiryProperty:
            list.take(4);
            break;
        case contentProperty:
            list.takeText();
            break;
        case responseProperty:
            message.responseTopic = list.takeText();
            break;
        case correlationProperty:
            message.correlation = std::string(list.takeText());
            break;
        case userProperty: {
            const std::string name(list.takeText());
            message.userProperties.emplace_back(name, list.takeText());
            break;
        }
        default:
            return;
        }
    }
}

} // namespace

LightClient::LightClient(std::uint16_t port, Options options, Receive receive)
    : m_port(port), m_options(std::move(options)), m_receive(std::move(receive))
{}

LightClient::~LightClient()
{
    cut();
}

void LightClient::cut()
{
    if (m_socket >= 0)
        close(m_socket);
    m_socket = -1;
    m_isGreeted = false;
    m_granted = 0;
    m_confirmed = 0;
    m_in.clear();
    m_inBegin = 0;
    m_out.clear();
}

void LightClient::connect()
{
    cut();
    m_socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (m_socket < 0)
        return;
    const int yes = 1;
    setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(m_port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 && errno != EINPROGRESS) {
        cut();
        return;
    }
    greet();
}

void LightClient::greet()
{
    std::string body;
    addText(body, "MQTT");
    body += '\5';
    constexpr unsigned int clean = 0x02;
    constexpr unsigned int retainedWill = 0x04 | 0x08 | 0x20; // of QoS 1
    body += static_cast<char>(m_options.will ? clean | retainedWill : clean);
    addShort(body, m_options.keepAlive);
    addLength(body, 0);
    addText(body, m_options.id);
    if (m_options.will) {
        addLength(body, 0);
        addText(body, m_options.will->topic);
        addText(body, m_options.will->payload);
    }
    send(connectPacket, body);
}

// Each by itself, as libmosquitto does it for the gateway.
void LightClient::subscribe()
{
    for (const Subscription& subscription : m_options.subscriptions) {
        std::string body;
        addShort(body, ++m_lastId);
        addLength(body, 0);
        addText(body, subscription.filter);
        constexpr unsigned int asPublished = 0x08;
        body +=
            static_cast<char>(static_cast<unsigned int>(subscription.qos) | asPublished |
                              (subscription.leavesOutOwn ? 0x04U : 0U) | (subscription.leavesOutRetained ? 0x20U : 0U));
        send(subscribePacket, body);
    }
}

void LightClient::publish(const Message& message)
{
    std::string body;
    addText(body, message.topic);
    if (message.qos != 0) {
        m_lastId = static_cast<std::uint16_t>(m_lastId == UINT16_MAX ? 1 : m_lastId + 1);
        addShort(body, m_lastId);
    }
    const std::string properties = propertiesOf(message);
    addLength(body, properties.size());
    body += properties;
    body += message.payload;
    const unsigned int flags = static_cast<unsigned int>(message.qos) << 1U | (message.isRetained ? 1U : 0U);
    send(static_cast<std::uint8_t>(publishPacket | flags), body);
}

void LightClient::ping()
{
    send(pingPacket, "");
}

void LightClient::send(std::uint8_t kind, const std::string& body)
{
    if (m_socket < 0)
        return;
    const bool isIdle = m_out.empty();
    m_out += static_cast<char>(kind);
    addLength(m_out, body.size());
    m_out += body;
    if (isIdle)
        flush();
}

void LightClient::flush()
{
    const ssize_t written = ::send(m_socket, m_out.data(), m_out.size(), MSG_NOSIGNAL);
    if (written > 0)
        m_out.erase(0, static_cast<std::size_t>(written));
    else if (written < 0 && errno != EAGAIN && errno != ENOTCONN)
        cut();
}

void LightClient::onReady()
{
    if (m_socket >= 0 && !m_out.empty())
        flush();
    char buffer[65536];
    while (m_socket >= 0) {
        const ssize_t count = recv(m_socket, buffer, sizeof buffer, 0);
        if (count < 0 && (errno == EAGAIN || errno == ENOTCONN))
            break;
        if (count <= 0) {
            cut();
            return;
        }
        m_in.append(buffer, static_cast<std::size_t>(count));
        while (takePacket()) {
        }
        m_in.erase(0, m_inBegin);
        m_inBegin = 0;
    }
}

// False: none is complete.
bool LightClient::takePacket()
{
    std::size_t length = 0;
    std::size_t head = m_inBegin + 1;
    for (unsigned int shift = 0;; shift += 7) {
        if (head >= m_in.size())
            return false;
        const auto byte = static_cast<std::uint8_t>(m_in[head++]);
        length |= static_cast<std::size_t>(byte & 0x7FU) << shift;
        if ((byte & 0x80U) == 0)
            break;
    }
    if (m_in.size() < head + length)
        return false;
    const auto kind = static_cast<std::uint8_t>(m_in[m_inBegin]);
    const std::string body = m_in.substr(head, length); // the handler may cut the connection
    m_inBegin = head + length;
    handle(kind, body);
    return true;
}

void LightClient::handle(std::uint8_t kind, std::string_view body)
{
    switch (kind & 0xF0U) {
    case connectAnswer:
        m_isGreeted = body.size() > 1 && body[1] == 0;
        if (m_isGreeted)
            subscribe();
        else
            cut();
        break;
    case subscribeAnswer:
        ++m_granted;
        break;
    case publishAnswer:
        ++m_confirmed;
        break;
    case publishPacket:
        handlePublish(kind, body);
        break;
    default: // answers to pings; a farewell, behind which the end comes
        break;
    }
}

void LightClient::handlePublish(std::uint8_t kind, std::string_view body)
{
    Bytes bytes(body);
    Message message;
    message.topic = bytes.takeText();
    message.qos = static_cast<int>(kind >> 1U & 3U);
    message.isRetained = (kind & 1U) != 0;
    if (message.qos != 0) {
        std::string answer;
        addShort(answer, bytes.takeShort());
        send(publishAnswer, answer);
    }
    const std::size_t size = bytes.takeLength();
    readProperties(Bytes(bytes.take(size)), message);
    message.payload = bytes.getRest();
    m_receive(std::move(message));
}

void tendClient(LightClient& client, int milliseconds)
{
    pollfd entry = {client.getSocket(), static_cast<short>(client.wantsWrite() ? POLLIN | POLLOUT : POLLIN), 0};
    if (poll(&entry, 1, milliseconds) > 0)
        client.onReady();
}

void bringUp(LightClient& client)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    client.connect();
    while (!client.isUp()) {
        if (std::chrono::steady_clock::now() > end)
            throw std::runtime_error("the broker does not take a client");
        if (client.getSocket() < 0) {
            poll(nullptr, 0, 50);
            client.connect();
        }
        tendClient(client, 50);
    }
}

} // namespace Vantor
